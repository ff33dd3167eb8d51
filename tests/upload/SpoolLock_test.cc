// The spool lock between the daemon's appends and the uploader's rotation:
// a writer that opened the event file just before it was rotated away, and
// waited for the lock meanwhile, must write into the new event file, never
// into the rotated one (which the uploader may already have finished with).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "lumvane/platform/DovetelSpoolLock.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using namespace std::chrono_literals;
using lumvane::testing::ReadFile;
using lumvane::testing::TempDir;
using lumvane::testing::WriteFile;

TEST(SpoolLockTest, WriterBlockedDuringRotationWritesIntoTheNewFile) {
  TempDir dir;
  const std::string events = dir.file("events.ndjson"), rotated = dir.file("events.ndjson.1");
  WriteFile(events, "old\n");
  // The uploader's side: lock the live file as a rotation does.
  int uploader = ::open(events.c_str(), O_RDONLY);
  ASSERT_GE(uploader, 0);
  ASSERT_EQ(::flock(uploader, LOCK_EX), 0);

  std::promise<void> opened;
  auto writer = std::async(std::launch::async, [&] {
    int fd = -1;
    std::optional<Error> error = OpenLockedDovetelSpool(events, O_WRONLY | O_CREAT | O_APPEND, &fd);
    if (error) return error->description();
    const bool written = ::write(fd, "new\n", 4) == 4;
    ::close(fd);
    return std::string(written ? "" : "short write");
  });
  // Give the writer time to open the old file and block on its lock.
  EXPECT_EQ(writer.wait_for(200ms), std::future_status::timeout) << "the writer did not wait for the lock";
  ASSERT_EQ(::rename(events.c_str(), rotated.c_str()), 0);
  ::close(uploader);  // unlocks

  EXPECT_EQ(writer.get(), "");
  EXPECT_EQ(ReadFile(rotated), "old\n");
  EXPECT_EQ(ReadFile(events), "new\n");
}

}  // namespace
}  // namespace lumvane
