#include "lumvane/signpost/SignpostStringTable.h"

#include <algorithm>

namespace lumvane {

size_t SignpostStringTable::cost(const std::string& text) {
  // The text's own buffer when it is not inline, the Interned and the map's
  // node and bucket: near enough for a budget.
  const size_t buffer = text.capacity() > 15 ? text.capacity() + 1 : 0;
  return buffer + sizeof(Interned) + sizeof(std::string_view) + 4 * sizeof(void*);
}

const std::string* SignpostStringTable::find(std::string_view text) const {
  const auto it = strings_.find(text);
  return it == strings_.end() ? nullptr : &it->second->text;
}

const std::string* SignpostStringTable::retain(std::string_view text) {
  auto it = strings_.find(text);
  if (it == strings_.end()) {
    auto interned = std::make_unique<Interned>();
    interned->text.assign(text.data(), text.size());
    const std::string_view key = interned->text;
    bytes_ += cost(interned->text);
    it = strings_.emplace(key, std::move(interned)).first;
  } else if (it->second->holders == 0) {
    unheld_ -= cost(it->second->text);
  }
  ++it->second->holders;
  return &it->second->text;
}

void SignpostStringTable::release(const std::string* text) {
  if (!text) return;
  const auto it = strings_.find(*text);
  if (it == strings_.end() || it->second->holders == 0) return;
  if (--it->second->holders == 0) {
    unheld_ += cost(it->second->text);
    if (unheld_ >= sweepAt_) trim();
  }
}

void SignpostStringTable::trim() {
  for (auto it = strings_.begin(); it != strings_.end();) {
    if (it->second->holders == 0) {
      bytes_ -= cost(it->second->text);
      it = strings_.erase(it);
    } else {
      ++it;
    }
  }
  unheld_ = 0;
  // Held strings are not swept: the next sweep waits until as much again
  // has been let go, so that sweeping stays linear in what is released.
  sweepAt_ = std::max(kMinSweepBytes, bytes_);
}

}  // namespace lumvane
