// Starts the real daemon in a child process with its state in a temporary
// directory and watches what it does from the outside.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <ctime>
#include <filesystem>

#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

constexpr std::chrono::seconds kPatience{20};

std::unique_ptr<testing::ChildProcess> StartDaemon(const testing::TempDir& dir,
                                                   std::vector<std::string> args,
                                                   bool exitWhenClean) {
  args.insert(args.begin(), LUMVANE_BINARY_DIR "/lumvaned");
  return std::make_unique<testing::ChildProcess>(
      args,
      std::vector<std::string>{
          "LUMVANE_STATE_DIR=" + dir.file("state"), "LUMVANE_DOVETEL_DIR=" + dir.file("dovetel"),
          "LUMVANE_LOG_TARGET=stderr", "LUMVANE_LOG_LEVEL=debug",
          std::string("LUMVANE_EXIT_WHEN_CLEAN=") + (exitWhenClean ? "1" : "0")},
      dir.file("lumvaned"));
}

TEST(LumvanedTest, ChecksInWithoutRunningWhenNotDueAndExitsCleanlyOnInterrupt) {
  testing::TempDir dir;
  std::filesystem::create_directory(dir.file("state"));
  const std::string minuteAgo = std::to_string(std::time(nullptr) - 60) + "\n";
  testing::WriteFile(dir.file("state/activity-last-run"), minuteAgo);
  auto daemon = StartDaemon(dir, {}, /*exitWhenClean=*/false);
  ASSERT_TRUE(daemon->waitForError("Checking in", kPatience)) << daemon->err();
  daemon->signal(SIGINT);
  EXPECT_EQ(daemon->wait(kPatience), 0) << daemon->err();
  EXPECT_EQ(testing::ReadFile(dir.file("state/activity-last-run")), minuteAgo)
      << "a run took place although none was due";
}

TEST(LumvanedTest, OneShotChecksInRunsAndExitsByItself) {
  testing::TempDir dir;
  // Not tasked on: the run's gate answers at once and the run ends before it
  // would touch the machine-wide guard file.
  std::filesystem::create_directories(dir.file("dovetel/configurations"));
  testing::WriteFile(dir.file("dovetel/configurations/com.orvel.performance.lumvane_tasking.json"),
                     "{\"TaskedOn\": 0}\n");
  auto daemon = StartDaemon(dir, {}, /*exitWhenClean=*/true);
  EXPECT_EQ(daemon->wait(kPatience), 0) << daemon->err();
  const std::string log = daemon->err();
  size_t gate =
      log.find("Not reporting based on not being tasked-on by Dovetel ('TaskedOn' is false)");
  ASSERT_NE(gate, std::string::npos) << log;
  EXPECT_LT(log.find("Checking in"), gate) << log;
  std::string record = testing::ReadFile(dir.file("state/activity-last-run"));
  ASSERT_FALSE(record.empty()) << "no completed run on record";
  EXPECT_NEAR(std::stoll(record), static_cast<long long>(std::time(nullptr)), 60);
}

TEST(LumvanedTest, TakesNoArguments) {
  testing::TempDir dir;
  auto help = StartDaemon(dir, {"--help"}, true);
  EXPECT_EQ(help->wait(kPatience), 0);
  EXPECT_NE(help->out().find("LUMVANE_EXIT_WHEN_CLEAN"), std::string::npos) << help->out();
  auto wrong = StartDaemon(dir, {"--once"}, true);
  EXPECT_EQ(wrong->wait(kPatience), 2);
  EXPECT_NE(wrong->err().find("unexpected argument '--once'"), std::string::npos) << wrong->err();
}

}  // namespace
}  // namespace lumvane
