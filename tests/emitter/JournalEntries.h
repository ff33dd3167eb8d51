// Reads back the signpost entries a test's private journald stored.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/support/PrivateJournal.h"

// Starts a PrivateJournal named `var` in a test, skipping the test where the
// machine cannot run one.
#define START_JOURNAL(var, options)                                    \
  auto var##_started = PrivateJournal::Start(options);                 \
  if (!var##_started.skip.empty()) GTEST_SKIP() << var##_started.skip; \
  ASSERT_EQ(var##_started.error, "");                                  \
  auto& var = *var##_started.journal

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
