// Starting a test's private journald and reading back the signposts it stored.
#pragma once

#include <gtest/gtest.h>
#include <systemd/sd-journal.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/PrivateJournal.h"

// Starts a PrivateJournal named `var`, skipping the test where the machine cannot run one.
#define START_JOURNAL(var, options)                                    \
  auto var##_started = PrivateJournal::Start(options);                 \
  if (!var##_started.skip.empty()) GTEST_SKIP() << var##_started.skip; \
  ASSERT_EQ(var##_started.error, "");                                  \
  auto& var = *var##_started.journal

namespace lumvane::testing {

// Every field of an entry; a field given more than once has several values.
using JournalEntry = std::multimap<std::string, std::string>;

// The entries with the signpost MESSAGE_ID, in the order journald stored them, once every entry
// sent so far is written; fails the current test when they cannot be read.
inline std::vector<JournalEntry> Signposts(PrivateJournal& journal) {
  std::vector<JournalEntry> entries;
  EXPECT_EQ(journal.sync(), "");
  sd_journal* raw = nullptr;
  int r = sd_journal_open_directory(&raw, PrivateJournal::kDirectory, 0);
  if (r < 0) {
    ADD_FAILURE() << "sd_journal_open_directory: " << std::strerror(-r);
    return entries;
  }
  std::unique_ptr<sd_journal, decltype(&sd_journal_close)> journalFiles(raw, sd_journal_close);
  EXPECT_EQ(sd_journal_add_match(raw, "MESSAGE_ID=0c7e0296aa5f4fc7af2af7a970a22d31", 0), 0);
  const void* data;
  size_t length;
  while (sd_journal_next(raw) > 0) {
    entries.emplace_back();
    SD_JOURNAL_FOREACH_DATA(raw, data, length) {
      std::string item(static_cast<const char*>(data), length);
      entries.back().emplace(item.substr(0, item.find('=')), item.substr(item.find('=') + 1));
    }
  }
  return entries;
}

// The one value of `field`, or "<absent>" / "<repeated>".
inline std::string Field(const JournalEntry& entry, const std::string& field) {
  size_t count = entry.count(field);
  return count == 1 ? entry.find(field)->second : count == 0 ? "<absent>" : "<repeated>";
}

}  // namespace lumvane::testing
