// The state at one place of the filter tree: a cap (the most objects the
// entry ever lets through) and a downsample ratio (only every n-th object can
// pass), with the two counters that its one decision, shouldReportThisTime(),
// keeps. Counters start at 0 and are never reset while the entry lives.
//
// Thread-safety: each field is read and written indivisibly (64-bit atomics),
// but shouldReportThisTime() is a sequence of separate reads and writes and
// is not atomic as a whole. Callers serialise every call on one entry and
// provide the ordering between threads themselves; the filter that owns the
// entry passes this duty on to its own callers.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace lumvane {

class LVDownsampleEntry final {
  struct PassKey {
    explicit PassKey() = default;
  };

 public:
  // A new entry with both counters at 0, or null when downsampleRatio is 0
  // (after logging "Tried to create a downsample entry with 0 downsample
  // ratio"). A cap of 0 is accepted: such an entry never lets anything pass.
  static std::shared_ptr<LVDownsampleEntry> initWithCap(uint64_t cap, uint64_t downsampleRatio);

  // Counts the object at hand and says whether it is to be reported: calls
  // are numbered 1, 2, 3... by eventsSeen; the calls numbered by a multiple
  // of the ratio are answered true until cap of them have been. The cap is
  // tested before the ratio, so once the cap is reached every call is false.
  bool shouldReportThisTime();

  uint64_t cap() const { return cap_.load(std::memory_order_relaxed); }
  uint64_t downsampleRatio() const { return downsampleRatio_.load(std::memory_order_relaxed); }
  uint64_t eventsSeen() const { return eventsSeen_.load(std::memory_order_relaxed); }
  void setEventsSeen(uint64_t value) { eventsSeen_.store(value, std::memory_order_relaxed); }
  uint64_t eventsReported() const { return eventsReported_.load(std::memory_order_relaxed); }
  void setEventsReported(uint64_t value) {
    eventsReported_.store(value, std::memory_order_relaxed);
  }

  // Only initWithCap() can name PassKey.
  LVDownsampleEntry(PassKey, uint64_t cap, uint64_t downsampleRatio)
      : cap_(cap), downsampleRatio_(downsampleRatio) {}
  LVDownsampleEntry(const LVDownsampleEntry&) = delete;
  LVDownsampleEntry& operator=(const LVDownsampleEntry&) = delete;

 private:
  // cap and downsampleRatio are written only at construction; they are
  // atomics all the same so that every field has the same access contract.
  std::atomic<uint64_t> cap_;
  std::atomic<uint64_t> downsampleRatio_;  // never 0
  std::atomic<uint64_t> eventsSeen_{0};
  std::atomic<uint64_t> eventsReported_{0};
};

}  // namespace lumvane
