// Runs on the guard file's fixed path, inside the private /var/tmp that the
// serial tests' main sets up (see tests/support/PrivateVarTmp.h).
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "lumvane/CookieFile.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

TEST(CookieFileSerialTest, FixedPathRoundTrip) {
  struct stat st;
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
