#include "lumvane/BootFilesystemProbe.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

TEST(BootFilesystemProbeTest, MatchesWhatFindmntReports) {
  FILE* out = popen("findmnt -n -o FSTYPE / 2>/dev/null", "r");
  ASSERT_NE(out, nullptr);
  std::string expected;
  char buf[256];
  while (fgets(buf, sizeof buf, out)) expected += buf;
  if (pclose(out) != 0) GTEST_SKIP() << "findmnt is not installed, nothing to compare with";
  // One line per mount at "/"; the last is the visible one.
  expected.pop_back();
  expected = expected.substr(expected.rfind('\n') + 1);
  testing::ScopedLogCapture capture;
  EXPECT_EQ(bootFilesystemType(), std::optional<std::string>(expected));
  EXPECT_EQ(capture.log().messages(), std::vector<std::string>{"Filesystem for '/': " + expected});
}

TEST(BootFilesystemProbeTest, ReadsTheLastRootEntryOfTheMountTable) {
  const struct {
    const char* table;
    std::optional<std::string> expected;
  } cases[] = {
      {"1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
       "2 1 8:2 / /home rw shared:1 - xfs /dev/sda2 rw\n"
       "3 1 0:5 / /mnt\\040x rw - tmpfs tmpfs rw\n"
       "4 1 0:30 / / rw,relatime shared:7 master:2 - fuse.my\\040fs src rw\n",
       "fuse.my fs"},
      {"2 1 8:2 / /home rw - xfs /dev/sda2 rw\n", std::nullopt},
      {"1 0 8:1 / / rw - \xff\xfe /dev/sda1 rw\n", std::nullopt},
      {nullptr, std::nullopt},  // no table at all
  };
  testing::TempDir dir;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.table ? c.table : "(absent)");
    if (c.table) testing::WriteFile(dir.file("mountinfo"), c.table);
    testing::ScopedLogCapture capture;
    EXPECT_EQ(bootFilesystemType(dir.file(c.table ? "mountinfo" : "absent")), c.expected);
    EXPECT_EQ(capture.log().messages(),
              std::vector<std::string>{c.expected ? "Filesystem for '/': " + *c.expected
                                                  : "Could not determine filesystem type"});
  }
}

}  // namespace
}  // namespace lumvane
