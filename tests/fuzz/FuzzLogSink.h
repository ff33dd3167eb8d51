// A log backend for the fuzz targets: every level is enabled, so that each
// message is formatted from whatever the input held, and then dropped.
#pragma once

#include <memory>
#include <string_view>

#include "lumvane/filter/LVLog.h"
#include "lumvane/platform/LogBackend.h"

namespace lumvane::fuzz {

class DiscardingLogBackend final : public LogBackend {
 public:
  bool isEnabled(LogLevel) const override { return true; }
  void write(LogLevel, std::string_view, std::string_view, std::string_view) override {}
};

// Installs the backend once per process.
inline void DiscardLogs() {
  static const bool installed = [] {
    LVLog().exchangeBackend(std::make_shared<DiscardingLogBackend>());
    return true;
  }();
  (void)installed;
}

}  // namespace lumvane::fuzz
