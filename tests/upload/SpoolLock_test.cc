// The spool lock between the daemon's appends and the uploader's rotation: a writer that opened the event file
// just before it was rotated away, and waited for the lock meanwhile, must write into the new event file, never
// into the rotated one (which the uploader may already have finished with).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <future>

#include "lumvane/platform/DovetelSpoolLock.h"
#include "upload/SpoolFollower.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using lumvane::testing::ReadFile;

TEST(SpoolLockTest, WriterBlockedDuringRotationWritesIntoTheNewFile) {
  lumvane::testing::TempDir dir;
  const std::string events = dir.file("events.ndjson"), rotated = dir.file("events.ndjson.1");
  lumvane::testing::WriteFile(events, "old\n");
  const int uploader = ::open(events.c_str(), O_RDONLY);  // locks the live file as a rotation does
  ASSERT_EQ(::flock(uploader, LOCK_EX), 0);
  auto writer = std::async(std::launch::async, [&] {
    int fd = -1;
    if (std::optional<Error> error = OpenLockedDovetelSpool(events, O_WRONLY | O_CREAT | O_APPEND, &fd)) {
      return error->description();
    }
    const bool written = ::write(fd, "new\n", 4) == 4;
    ::close(fd);
    return std::string(written ? "" : "short write");
  });
  EXPECT_EQ(writer.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout)
      << "the writer did not wait for the lock";
  ASSERT_EQ(::rename(events.c_str(), rotated.c_str()), 0);
  ::close(uploader);  // unlocks
  EXPECT_EQ(writer.get(), "");
  EXPECT_EQ(ReadFile(rotated), "old\n");
  EXPECT_EQ(ReadFile(events), "new\n");
}

// The other side: a rotation waits for an append in progress, so the appended line lands whole in the file that
// is rotated away, never half in it and half in the next.
TEST(SpoolLockTest, RotationWaitsForAnAppendInProgress) {
  lumvane::testing::TempDir dir;
  const upload::SpoolPaths paths(dir.path());
  lumvane::testing::WriteFile(paths.events, "a\n");
  upload::SpoolFollower follower(paths);
  upload::UploadCursor cursor;
  bool replaced = false;
  ASSERT_FALSE(follower.start(&cursor, &replaced));
  int appender = -1;  // a daemon in the middle of an append
  ASSERT_FALSE(OpenLockedDovetelSpool(paths.events, O_WRONLY | O_APPEND, &appender));
  ASSERT_EQ(::write(appender, "b", 1), 1);
  auto rotation = std::async(std::launch::async, [&] {
    auto error = follower.rotate();
    return error ? error->description() : std::string();
  });
  EXPECT_EQ(rotation.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout)
      << "the rotation did not wait for the append";
  ASSERT_EQ(::write(appender, "\n", 1), 1);
  ::close(appender);  // unlocks
  EXPECT_EQ(rotation.get(), "");
  EXPECT_EQ(ReadFile(paths.rotated(1)), "a\nb\n");
  EXPECT_TRUE(follower.sealed());
}

}  // namespace
}  // namespace lumvane
