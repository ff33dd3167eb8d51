// Journal files for tests, made from export-format text by the real
// systemd-journal-remote (Debian package systemd-journal-remote), so that
// readers are tested against files written by the journal's own code.
#pragma once

#include <string>

namespace lumvane::testing {

inline constexpr const char* kJournalRemotePath = "/lib/systemd/systemd-journal-remote";

// Whether kJournalRemotePath can be run.
bool JournalRemoteAvailable();

// Writes `exportText` to `dir`/`name`.export and runs
//   systemd-journal-remote --output=`dir`/`name`.journal `dir`/`name`.export
// (`dir` must exist: the program makes files, not directories). Returns the
// journal file's path; on failure adds a test failure with the program's
// error output and returns "". The export file is removed afterwards, so
// that `dir` holds only journal files. Call from the test's thread.
std::string MakeJournalFile(const std::string& dir, const std::string& name,
                            const std::string& exportText);

}  // namespace lumvane::testing

// Ends the current test as skipped (shown so in CTest's summary) when
// systemd-journal-remote is missing.
#define LUMVANE_SKIP_WITHOUT_JOURNAL_REMOTE()                                \
  do {                                                                       \
    if (!::lumvane::testing::JournalRemoteAvailable()) {                     \
      GTEST_SKIP() << ::lumvane::testing::kJournalRemotePath                 \
                   << " is missing (Debian package systemd-journal-remote)"; \
    }                                                                        \
  } while (0)
