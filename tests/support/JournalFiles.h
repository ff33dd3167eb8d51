// Journal files for tests, made from export text by the real systemd-journal-remote.
#pragma once

#include <unistd.h>

#include <string>

namespace lumvane::testing {

inline constexpr const char* kJournalRemotePath = "/lib/systemd/systemd-journal-remote";

inline bool JournalRemoteAvailable() { return ::access(kJournalRemotePath, X_OK) == 0; }

// Makes `dir`/`name`.journal (`dir` must exist) from `exportText` and answers
// its path, leaving no other file behind; on failure adds a test failure with
// the program's error output and answers "". Call from the test's thread.
std::string MakeJournalFile(const std::string& dir, const std::string& name,
                            const std::string& exportText);

}  // namespace lumvane::testing

// Ends the current test as skipped when systemd-journal-remote is missing.
#define LUMVANE_SKIP_WITHOUT_JOURNAL_REMOTE()                                                        \
  do {                                                                                               \
    if (!::lumvane::testing::JournalRemoteAvailable()) {                                             \
      GTEST_SKIP() << ::lumvane::testing::kJournalRemotePath                                         \
                   << " is missing (Debian package systemd-journal-remote)";                         \
    }                                                                                                \
  } while (0)
