#include "lumvane/BootFilesystemProbe.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

TEST(BootFilesystemProbeTest, MatchesWhatFindmntReports) {
  if (access("/usr/bin/findmnt", X_OK) != 0 && access("/bin/findmnt", X_OK) != 0) {
    GTEST_SKIP() << "findmnt is not installed, nothing to compare with";
  }
  std::string expected;
  FILE* out = popen("findmnt -n -o FSTYPE / 2>/dev/null", "r");
  ASSERT_NE(out, nullptr);
  char buf[256];
  while (fgets(buf, sizeof buf, out)) expected += buf;
  pclose(out);
  // One line per mount at "/"; the last is the visible one.
  while (!expected.empty() && expected.back() == '\n') expected.pop_back();
  expected = expected.substr(expected.rfind('\n') + 1);
  testing::ScopedLogCapture capture;
  EXPECT_EQ(bootFilesystemType(), std::optional<std::string>(expected));
  EXPECT_TRUE(capture.log().contains("Filesystem for '/': " + expected));
}

TEST(BootFilesystemProbeTest, ReadsTheLastRootEntryOfTheMountTable) {
  testing::TempDir dir;
  std::string table = dir.file("mountinfo");
  testing::WriteFile(table,
                     "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
                     "2 1 8:2 / /home rw shared:1 - xfs /dev/sda2 rw\n"
                     "3 1 0:5 / /mnt\\040x rw - tmpfs tmpfs rw\n"
                     "4 1 0:30 / / rw,relatime shared:7 master:2 - fuse.my\\040fs src rw\n");
  testing::ScopedLogCapture capture;
  EXPECT_EQ(bootFilesystemType(table), std::optional<std::string>("fuse.my fs"));

  testing::WriteFile(table, "2 1 8:2 / /home rw - xfs /dev/sda2 rw\n");
  EXPECT_EQ(bootFilesystemType(table), std::nullopt);
  testing::WriteFile(table, "1 0 8:1 / / rw - \xff\xfe /dev/sda1 rw\n");
  EXPECT_EQ(bootFilesystemType(table), std::nullopt);
  EXPECT_EQ(bootFilesystemType(dir.file("absent")), std::nullopt);
  EXPECT_EQ(capture.log().messages(),
            (std::vector<std::string>{"Filesystem for '/': fuse.my fs",
                                      "Could not determine filesystem type",
                                      "Could not determine filesystem type",
                                      "Could not determine filesystem type"}));
}

}  // namespace
}  // namespace lumvane
