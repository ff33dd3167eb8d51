#include "tests/support/JournalFiles.h"

#include <gtest/gtest.h>

#include <chrono>

#include "tests/support/TestSupport.h"

namespace lumvane::testing {

std::string MakeJournalFile(const std::string& dir, const std::string& name,
                            const std::string& exportText) {
  const std::string prefix = dir + "/" + name, journal = prefix + ".journal";
  WriteFile(prefix + ".export", exportText);
  ChildProcess remote({kJournalRemotePath, "--output=" + journal, prefix + ".export"}, {},
                      prefix + ".remote");
  const std::optional<int> status = remote.wait(std::chrono::seconds(120));
  const std::string err = remote.err();
  for (const char* suffix : {".export", ".remote.out", ".remote.err"}) ::unlink((prefix + suffix).c_str());
  if (status != 0 || !PathExists(journal)) {
    ADD_FAILURE() << kJournalRemotePath << " could not make " << journal << ": " << err;
    return "";
  }
  return journal;
}

}  // namespace lumvane::testing
