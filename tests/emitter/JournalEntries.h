// Reads back the signpost entries a test's private journald stored.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace lumvane::testing {

// Every field of an entry; a field given more than once has several values.
using JournalEntry = std::multimap<std::string, std::string>;

// The entries with the signpost MESSAGE_ID under `directory`, in the order
// journald stored them; fails the current test when the journal cannot be
// opened.
std::vector<JournalEntry> ReadSignpostEntries(const std::string& directory);

// The one value of `field`, or "<absent>" / "<repeated>".
std::string Field(const JournalEntry& entry, const std::string& field);

}  // namespace lumvane::testing
