#include "tests/support/JournalFiles.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>

#include "tests/support/TestSupport.h"

namespace lumvane::testing {

bool JournalRemoteAvailable() { return ::access(kJournalRemotePath, X_OK) == 0; }

std::string MakeJournalFile(const std::string& dir, const std::string& name,
                            const std::string& exportText) {
  const std::string input = dir + "/" + name + ".export";
  const std::string journal = dir + "/" + name + ".journal";
  WriteFile(input, exportText);
  ChildProcess remote({kJournalRemotePath, "--output=" + journal, input}, {},
                      dir + "/" + name + ".remote");
  const std::optional<int> status = remote.wait(std::chrono::seconds(120));
  const std::string err = remote.err();
  ::unlink(input.c_str());
  ::unlink((dir + "/" + name + ".remote.out").c_str());
  ::unlink((dir + "/" + name + ".remote.err").c_str());
  if (status != 0 || !PathExists(journal)) {
    ADD_FAILURE() << kJournalRemotePath << " could not make " << journal << ": " << err;
    return "";
  }
  return journal;
}

}  // namespace lumvane::testing
