// Test double for the event sink: keeps every event, in the order sent,
// instead of writing it out. Thread-safe like every sink.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "lumvane/platform/DovetelEventSink.h"
#include "lumvane/signpost/Value.h"

namespace lumvane {

class RecordingDovetelSink final : public DovetelEventSink {
 public:
  struct Event {
    std::string name;
    Dictionary payload;
  };

  void sendEvent(const std::string& name, const Dictionary& payload) override {
    std::lock_guard<std::mutex> lock(mu_);
    events_.push_back({name, payload});
  }

  std::vector<Event> events() const {
    std::lock_guard<std::mutex> lock(mu_);
    return events_;
  }

 private:
  mutable std::mutex mu_;
  std::vector<Event> events_;
};

}  // namespace lumvane
