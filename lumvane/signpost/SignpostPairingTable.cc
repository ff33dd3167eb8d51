#include "lumvane/signpost/SignpostPairingTable.h"

#include <cstring>

namespace lumvane {
namespace {

void AppendU64(std::string* s, uint64_t v) {
  char bytes[sizeof v];
  std::memcpy(bytes, &v, sizeof v);
  s->append(bytes, sizeof v);
}

void AppendText(std::string* s, std::string_view t) {
  AppendU64(s, t.size());
  s->append(t.data(), t.size());
}

}  // namespace

void OpenSignpostInterval::countFrame(const SignpostTime& t) {
  if (SignpostTime::elapsedNanoseconds(beginTime, t) <= 0) return;
  ++frames;
  const int64_t sinceLatest =
      framesAtLatestTime == 0 ? 1 : SignpostTime::elapsedNanoseconds(latestFrameTime, t);
  if (sinceLatest > 0) {
    latestFrameTime = t;
    framesAtLatestTime = 1;
  } else if (sinceLatest == 0) {
    ++framesAtLatestTime;
  }
}

uint64_t OpenSignpostInterval::framesBefore(const SignpostTime& end) const {
  if (frames == 0 || SignpostTime::elapsedNanoseconds(latestFrameTime, end) > 0) return frames;
  return frames - framesAtLatestTime;
}

const std::string& SignpostPairingTable::keyOf(const SignpostEntry& e) {
  // Length-prefixed parts keep ("a", "bc") and ("ab", "c") apart; an
  // absent name differs from an empty one.
  key_.clear();
  key_.push_back(static_cast<char>(e.scope));
  AppendText(&key_, e.bootID);
  if (e.scope != SignpostEntry::Scope::System) AppendU64(&key_, e.pid.value_or(0));
  if (e.scope == SignpostEntry::Scope::Thread) AppendU64(&key_, e.tid.value_or(0));
  AppendU64(&key_, e.signpostID);
  AppendText(&key_, e.subsystem);
  AppendText(&key_, e.category);
  key_.push_back(e.name ? '\1' : '\0');
  if (e.name) AppendText(&key_, *e.name);
  return key_;
}

bool SignpostPairingTable::contains(const SignpostEntry& e) {
  return open_.find(keyOf(e)) != open_.end();
}

bool SignpostPairingTable::open(const SignpostEntry& e, OpenSignpostInterval interval) {
  if (open_.find(keyOf(e)) != open_.end()) return false;
  if (open_.size() >= maxOpen_) {
    ++dropped_;
    const auto oldest = byAge_.begin();
    // The new begin is itself the earliest: it is the one dropped.
    if (interval.beginTime.realtimeUsec < oldest->first.first) return true;
    open_.erase(open_.find(*oldest->second));
    byAge_.erase(oldest);
  }
  interval.sequence = nextSequence_++;
  const uint64_t realtime = interval.beginTime.realtimeUsec;
  const uint64_t sequence = interval.sequence;
  const auto placed = open_.emplace(key_, std::move(interval)).first;
  byAge_.emplace(std::make_pair(realtime, sequence), &placed->first);
  return true;
}

std::optional<OpenSignpostInterval> SignpostPairingTable::close(const SignpostEntry& e) {
  auto it = open_.find(keyOf(e));
  if (it == open_.end()) return std::nullopt;
  byAge_.erase({it->second.beginTime.realtimeUsec, it->second.sequence});
  std::optional<OpenSignpostInterval> interval(std::move(it->second));
  open_.erase(it);
  return interval;
}

void SignpostPairingTable::countFrame(const SignpostEntry& e) {
  if (open_.empty()) return;
  auto it = open_.find(keyOf(e));
  if (it != open_.end()) it->second.countFrame(e.time);
}

}  // namespace lumvane
