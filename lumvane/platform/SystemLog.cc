#include "lumvane/platform/SystemLog.h"

#include <atomic>

namespace lumvane {

SystemLog::SystemLog(std::string subsystem, std::string category,
                     std::shared_ptr<LogBackend> backend)
    : subsystem_(std::move(subsystem)), category_(std::move(category)),
      backend_(std::move(backend)) {}

bool SystemLog::isEnabled(LogLevel level) const { return backend()->isEnabled(level); }

void SystemLog::write(LogLevel level, std::string_view message) const {
  std::shared_ptr<LogBackend> b = backend();
  if (b->isEnabled(level)) b->write(level, subsystem_, category_, message);
}

std::shared_ptr<LogBackend> SystemLog::exchangeBackend(std::shared_ptr<LogBackend> backend) {
  return std::atomic_exchange(&backend_, std::move(backend));
}

std::shared_ptr<LogBackend> SystemLog::backend() const { return std::atomic_load(&backend_); }

}  // namespace lumvane
