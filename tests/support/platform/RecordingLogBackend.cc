#include "tests/support/platform/RecordingLogBackend.h"

namespace lumvane {

void RecordingLogBackend::write(LogLevel level, std::string_view subsystem,
                                std::string_view category, std::string_view message) {
  if (!isEnabled(level)) return;
  std::lock_guard<std::mutex> lock(mu_);
  records_.push_back(
      {level, std::string(subsystem), std::string(category), std::string(message)});
}

std::vector<RecordingLogBackend::Record> RecordingLogBackend::records() const {
  std::lock_guard<std::mutex> lock(mu_);
  return records_;
}

std::vector<std::string> RecordingLogBackend::messages() const {
  std::lock_guard<std::mutex> lock(mu_);
  std::vector<std::string> out;
  out.reserve(records_.size());
  for (const auto& r : records_) out.push_back(r.message);
  return out;
}

std::size_t RecordingLogBackend::count(std::string_view message) const {
  std::lock_guard<std::mutex> lock(mu_);
  std::size_t n = 0;
  for (const auto& r : records_) n += r.message == message ? 1 : 0;
  return n;
}

void RecordingLogBackend::clear() {
  std::lock_guard<std::mutex> lock(mu_);
  records_.clear();
}

}  // namespace lumvane
