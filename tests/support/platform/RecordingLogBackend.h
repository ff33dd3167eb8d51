// Test double for the system log: keeps every record in order so that a test
// can check which lines were written, at which level and in which order.
// Thread-safe; every level is enabled unless a test lowers the threshold.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "lumvane/platform/LogBackend.h"

namespace lumvane {

class RecordingLogBackend final : public LogBackend {
 public:
  struct Record {
    LogLevel level;
    std::string subsystem;
    std::string category;
    std::string message;
  };

  explicit RecordingLogBackend(LogLevel threshold = LogLevel::Debug) : threshold_(threshold) {}

  bool isEnabled(LogLevel level) const override { return level >= threshold_; }
  void write(LogLevel level, std::string_view subsystem, std::string_view category,
             std::string_view message) override;

  std::vector<Record> records() const;
  std::vector<std::string> messages() const;
  // How many records have exactly this text.
  std::size_t count(std::string_view message) const;
  bool contains(std::string_view message) const { return count(message) > 0; }
  void clear();

 private:
  const LogLevel threshold_;
  mutable std::mutex mu_;
  std::vector<Record> records_;
};

}  // namespace lumvane
