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

void OpenSignpostInterval::countFrame(Date t) {
  if (t <= beginTime) return;
  ++frames;
  if (t > latestFrameTime || framesAtLatestTime == 0) {
    latestFrameTime = t;
    framesAtLatestTime = 1;
  } else if (t == latestFrameTime) {
    ++framesAtLatestTime;
  }
}

uint64_t OpenSignpostInterval::framesBefore(Date end) const {
  if (frames == 0 || latestFrameTime < end) return frames;
  return frames - framesAtLatestTime;
}

const std::string& SignpostPairingTable::keyOf(const SignpostRecord& r) {
  // Length-prefixed parts keep ("a", "bc") and ("ab", "c") apart; an
  // absent name differs from an empty one.
  key_.clear();
  const SignpostRecord::Scope scope = r.scope.value_or(SignpostRecord::Scope::System);
  key_.push_back(static_cast<char>(scope));
  uint64_t table = 0;
  if (scope == SignpostRecord::Scope::Process) table = r.processID.value_or(0);
  if (scope == SignpostRecord::Scope::Thread) table = r.threadID.value_or(0);
  AppendU64(&key_, table);
  AppendU64(&key_, r.signpostID.value_or(0));
  AppendText(&key_, r.subsystem);
  AppendText(&key_, r.category);
  key_.push_back(r.name ? '\1' : '\0');
  if (r.name) AppendText(&key_, *r.name);
  return key_;
}

bool SignpostPairingTable::contains(const SignpostRecord& r) {
  return open_.find(keyOf(r)) != open_.end();
}

bool SignpostPairingTable::open(const SignpostRecord& r, OpenSignpostInterval interval) {
  return open_.emplace(keyOf(r), std::move(interval)).second;
}

std::optional<OpenSignpostInterval> SignpostPairingTable::close(const SignpostRecord& r) {
  auto it = open_.find(keyOf(r));
  if (it == open_.end()) return std::nullopt;
  std::optional<OpenSignpostInterval> interval(std::move(it->second));
  open_.erase(it);
  return interval;
}

void SignpostPairingTable::countFrame(const SignpostRecord& r) {
  if (!r.scope || !r.signpostID) return;
  auto it = open_.find(keyOf(r));
  if (it != open_.end()) it->second.countFrame(r.timestamp);
}

}  // namespace lumvane
