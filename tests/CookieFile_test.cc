#include "lumvane/CookieFile.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

TEST(CookieFileTest, CreatesOnceAndClearsWhatItCreatedOrFound) {
  testing::TempDir dir;
  testing::ScopedLogCapture capture;
  CookieFile cookie(dir.file("lumvane_running"));
  cookie.clearCookieFile();  // nothing there: nothing logged
  EXPECT_FALSE(cookie.cookieFileExists());
  EXPECT_TRUE(cookie.createCookieFile());
  EXPECT_EQ(fs::file_size(cookie.path()), 0u);
  EXPECT_FALSE(cookie.createCookieFile());
  cookie.clearCookieFile();
  EXPECT_FALSE(testing::PathExists(cookie.path()));

  // A directory counts as present: the run bails and removes it whole.
  fs::create_directories(cookie.path() + "/a/b");
  testing::WriteFile(cookie.path() + "/a/b/f", "x");
  EXPECT_TRUE(cookie.cookieFileExists());
  cookie.clearCookieFile();
  EXPECT_FALSE(testing::PathExists(cookie.path()));
  EXPECT_EQ(capture.log().messages(),
            (Lines{"Created cookie file", "Cleared cookie file", "Cookie file exists but is directory",
                   "Cookie file exists but is directory", "Cleared cookie file"}));
}

TEST(CookieFileTest, SymbolicLinksAreNeverFollowed) {
  testing::TempDir dir;
  const std::string path = dir.file("lumvane_running"), target = dir.file("victim");
  ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0);
  // Creation refuses a dangling link, saying where, and does not create its target.
  std::optional<Error> error;
  EXPECT_FALSE(DefaultFileManager().createFileAtPath(path, &error));
  EXPECT_NE(error.value_or(Error("")).localizedDescription().find(path), std::string::npos);
  CookieFile cookie(path);
  EXPECT_TRUE(cookie.cookieFileExists());
  EXPECT_FALSE(cookie.createCookieFile());
  EXPECT_FALSE(testing::PathExists(target));
  // Clearing removes a link to a directory, or a tree holding one, never what it points to.
  fs::create_directory(target);
  testing::WriteFile(target + "/keep", "k");
  cookie.clearCookieFile();
  EXPECT_FALSE(testing::PathExists(path));
  fs::create_directory(path);
  ASSERT_EQ(symlink(target.c_str(), (path + "/inner").c_str()), 0);
  cookie.clearCookieFile();
  EXPECT_FALSE(testing::PathExists(path));
  EXPECT_EQ(testing::ReadFile(target + "/keep"), "k");
}

// Something is always present, and every removal fails with `reason`.
struct FailingRemoval final : FileManager {
  explicit FailingRemoval(std::optional<Error> r) : reason(std::move(r)) {}
  bool fileExistsAtPath(const std::string&, bool*) const override { return true; }
  bool createFileAtPath(const std::string&, std::optional<Error>*) override { return false; }
  bool removeItemAtPath(const std::string&, std::optional<Error>* errorOut) override {
    *errorOut = reason;
    return false;
  }
  std::optional<Error> reason;
};

TEST(CookieFileTest, FailedClearIsAnErrorWithTheReason) {
  testing::ScopedLogCapture capture;
  FailingRemoval withReason(Error("cannot remove /x: Permission denied")), withoutReason(std::nullopt);
  CookieFile("/x", withReason).clearCookieFile();
  CookieFile("/x", withoutReason).clearCookieFile();
  auto records = capture.log().records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].level, LogLevel::Error);
  EXPECT_EQ(records[0].message, "Could not clear cookie file: cannot remove /x: Permission denied");
  EXPECT_EQ(records[1].message, "Could not clear cookie file: Unknown error");
}

}  // namespace
}  // namespace lumvane
