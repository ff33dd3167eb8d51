#include "tests/emitter/JournalEntries.h"

#include <gtest/gtest.h>
#include <systemd/sd-journal.h>

#include <cstring>
#include <memory>

namespace lumvane::testing {

std::vector<JournalEntry> ReadSignpostEntries(const std::string& directory) {
  std::vector<JournalEntry> entries;
  sd_journal* raw = nullptr;
  int r = sd_journal_open_directory(&raw, directory.c_str(), 0);
  if (r < 0) {
    ADD_FAILURE() << "sd_journal_open_directory " << directory << ": " << std::strerror(-r);
    return entries;
  }
  std::unique_ptr<sd_journal, decltype(&sd_journal_close)> journal(raw, sd_journal_close);
  r = sd_journal_add_match(raw, "MESSAGE_ID=0c7e0296aa5f4fc7af2af7a970a22d31", 0);
  EXPECT_EQ(r, 0);
  while (sd_journal_next(raw) > 0) {
    JournalEntry entry;
    const void* data;
    size_t length;
    sd_journal_restart_data(raw);
    while (sd_journal_enumerate_data(raw, &data, &length) > 0) {
      std::string item(static_cast<const char*>(data), length);
      size_t eq = item.find('=');
      entry.emplace(item.substr(0, eq), item.substr(eq + 1));
    }
    entries.push_back(std::move(entry));
  }
  return entries;
}

std::string Field(const JournalEntry& entry, const std::string& field) {
  switch (entry.count(field)) {
    case 0:
      return "<absent>";
    case 1:
      return entry.find(field)->second;
    default:
      return "<repeated>";
  }
}

}  // namespace lumvane::testing
