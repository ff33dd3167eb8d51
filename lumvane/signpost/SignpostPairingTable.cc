#include "lumvane/signpost/SignpostPairingTable.h"

#include <algorithm>
#include <functional>

namespace lumvane {

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

bool SignpostPairingTable::Key::operator==(const Key& o) const {
  return bootID == o.bootID && subsystem == o.subsystem && category == o.category &&
         name == o.name && pid == o.pid && tid == o.tid && signpostID == o.signpostID &&
         scope == o.scope;
}

size_t SignpostPairingTable::KeyHash::operator()(const Key& k) const {
  size_t h = std::hash<uint64_t>()(k.signpostID);
  const auto mix = [&h](size_t v) { h ^= v + 0x9e3779b97f4a7c15ull + (h << 6) + (h >> 2); };
  mix(std::hash<const void*>()(k.subsystem));
  mix(std::hash<const void*>()(k.category));
  mix(std::hash<const void*>()(k.name));
  mix(std::hash<const void*>()(k.bootID));
  mix(std::hash<uint64_t>()(k.pid));
  mix(std::hash<uint64_t>()(k.tid));
  mix(static_cast<size_t>(k.scope));
  return h;
}

std::optional<SignpostPairingTable::Key> SignpostPairingTable::find(const SignpostEntry& e) const {
  Key k;
  k.scope = e.scope;
  if (e.scope != SignpostEntry::Scope::System) k.pid = e.pid.value_or(0);
  if (e.scope == SignpostEntry::Scope::Thread) k.tid = e.tid.value_or(0);
  k.signpostID = e.signpostID;
  if (!(k.bootID = strings_->find(e.bootID)) || !(k.subsystem = strings_->find(e.subsystem)) ||
      !(k.category = strings_->find(e.category))) {
    return std::nullopt;
  }
  if (e.name && !(k.name = strings_->find(*e.name))) return std::nullopt;
  return k;
}

bool SignpostPairingTable::contains(const SignpostEntry& e) const {
  const std::optional<Key> k = find(e);
  return k && open_.count(*k) != 0;
}

bool SignpostPairingTable::full() const {
  return open_.size() + strings_->bytes() / kOpenBeginBytes >= maxOpen_;
}

void SignpostPairingTable::release(const OpenSignpostInterval& open) {
  strings_->release(open.subsystem);
  strings_->release(open.category);
  strings_->release(open.name);
  strings_->release(open.processName);
  strings_->release(open.processImagePath);
}

const SignpostPairingTable::Age* SignpostPairingTable::oldest() {
  while (!byAge_.empty()) {
    const Age& top = byAge_.front();
    const auto it = open_.find(top.key);
    if (it != open_.end() && it->second.sequence == top.sequence) return &top;
    std::pop_heap(byAge_.begin(), byAge_.end(), std::greater<Age>());
    byAge_.pop_back();
  }
  return nullptr;
}

void SignpostPairingTable::dropOldest() {
  const auto it = open_.find(oldest()->key);
  release(it->second);
  strings_->release(it->first.bootID);
  open_.erase(it);
  std::pop_heap(byAge_.begin(), byAge_.end(), std::greater<Age>());
  byAge_.pop_back();
}

void SignpostPairingTable::pushAge(uint64_t realtimeUsec, uint64_t sequence, const Key& key) {
  if (byAge_.size() >= open_.size() + open_.size() / 2 + 64) {
    // A third or more are closed begins: keep only the open ones. A
    // rebuild removes at least a third of what it walks, so that the
    // cost stays linear in the begins opened.
    byAge_.clear();
    for (const auto& [k, open] : open_) {
      byAge_.push_back(Age{open.beginTime.realtimeUsec, open.sequence, k});
    }
    std::make_heap(byAge_.begin(), byAge_.end(), std::greater<Age>());
  }
  byAge_.push_back(Age{realtimeUsec, sequence, key});
  std::push_heap(byAge_.begin(), byAge_.end(), std::greater<Age>());
}

bool SignpostPairingTable::open(const SignpostEntry& e) {
  if (contains(e)) return false;
  // The begin's texts join the table first: they count toward the cap.
  OpenSignpostInterval interval;
  interval.subsystem = strings_->retain(e.subsystem);
  interval.category = strings_->retain(e.category);
  interval.name = e.name ? strings_->retain(*e.name) : nullptr;
  interval.processName = e.processName ? strings_->retain(*e.processName) : nullptr;
  interval.processImagePath =
      e.processImagePath ? strings_->retain(*e.processImagePath) : nullptr;
  const std::string* bootID = strings_->retain(e.bootID);
  // Strings no begin holds are let go before any begin is.
  if (full() && strings_->unheldBytes() >= kOpenBeginBytes) strings_->trim();
  while (full()) {
    ++dropped_;
    // The new begin is itself the earliest (or nothing else can go): it is
    // the one dropped.
    const Age* first = oldest();
    if (!first || e.time.realtimeUsec < first->realtimeUsec) {
      release(interval);
      strings_->release(bootID);
      return true;
    }
    dropOldest();
  }
  interval.beginTime = e.time;
  interval.arguments = e.arguments;
  interval.telemetryEnabled = e.telemetry;
  interval.animation = e.animation;
  interval.sequence = nextSequence_++;
  const Key k = *find(e);
  pushAge(e.time.realtimeUsec, interval.sequence, k);
  open_.emplace(k, std::move(interval));
  return true;
}

OpenSignpostInterval* SignpostPairingTable::close(const SignpostEntry& e) {
  if (closed_) {
    release(*closed_);
    closed_.reset();
  }
  const std::optional<Key> k = find(e);
  const auto it = k ? open_.find(*k) : open_.end();
  if (it == open_.end()) return nullptr;
  strings_->release(it->first.bootID);
  closed_.emplace(std::move(it->second));
  open_.erase(it);
  return &*closed_;
}

void SignpostPairingTable::countFrame(const SignpostEntry& e) {
  if (open_.empty()) return;
  const std::optional<Key> k = find(e);
  if (!k) return;
  const auto it = open_.find(*k);
  if (it != open_.end()) it->second.countFrame(e.time);
}

void SignpostPairingTable::clear() {
  if (closed_) release(*closed_);
  closed_.reset();
  for (const auto& [key, open] : open_) {
    release(open);
    strings_->release(key.bootID);
  }
  open_.clear();
  byAge_.clear();
  dropped_ = 0;
}

}  // namespace lumvane
