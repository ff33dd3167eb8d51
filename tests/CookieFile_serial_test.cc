// Runs on the machine's own guard file; CTest never runs it alongside another
// test that touches that path.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "lumvane/CookieFile.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

TEST(CookieFileSerialTest, FixedPathRoundTrip) {
  struct stat st;
  if (lstat(CookieFile::kPath, &st) == 0) {
    GTEST_SKIP() << CookieFile::kPath << " already exists; a daemon may be running";
  }
  testing::ScopedLogCapture capture;
  EXPECT_FALSE(cookieFileExists());
  ASSERT_TRUE(createCookieFile());
  EXPECT_TRUE(cookieFileExists());
  EXPECT_EQ(testing::ReadFile(CookieFile::kPath), "");
  clearCookieFile();
  EXPECT_NE(lstat(CookieFile::kPath, &st), 0);
  EXPECT_EQ(capture.log().messages(),
            (std::vector<std::string>{"Created cookie file", "Cleared cookie file"}));
}

}  // namespace
}  // namespace lumvane
