// Starts the real daemon in a child process with its state in a temporary
// directory and watches what it does from the outside.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sys/stat.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <optional>

#include "tests/support/TestSupport.h"

extern char** environ;

namespace lumvane {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kPatience{20};

class Daemon {
 public:
  Daemon(const std::vector<std::string>& args, const std::vector<std::string>& env) {
    std::vector<std::string> strings;
    for (char** e = environ; *e; ++e) {
      if (std::string(*e).rfind("LUMVANE_", 0) != 0) strings.push_back(*e);
    }
    strings.insert(strings.end(), env.begin(), env.end());
    std::vector<char*> envp;
    for (auto& s : strings) envp.push_back(s.data());
    envp.push_back(nullptr);
    std::vector<std::string> argStrings{LUMVANE_BINARY_DIR "/lumvaned"};
    argStrings.insert(argStrings.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& s : argStrings) argv.push_back(s.data());
    argv.push_back(nullptr);

    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) ADD_FAILURE() << "pipe: " << std::strerror(errno);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(fds[1], STDERR_FILENO);
      ::dup2(fds[1], STDOUT_FILENO);
      ::execve(argv[0], argv.data(), envp.data());
      ::_exit(127);
    }
    ::close(fds[1]);
    out_ = fds[0];
  }

  ~Daemon() {
    if (!status_) {
      ::kill(pid_, SIGKILL);
      int status;
      ::waitpid(pid_, &status, 0);
    }
    ::close(out_);
  }

  // Reads the child's output until `text` appears or the output ends or
  // time runs out.
  bool waitForOutput(const std::string& text) {
    Clock::time_point deadline = Clock::now() + kPatience;
    while (output_.find(text) == std::string::npos) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
      if (left.count() <= 0) return false;
      struct pollfd p = {out_, POLLIN, 0};
      if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) continue;
      char buffer[4096];
      ssize_t n = ::read(out_, buffer, sizeof buffer);
      if (n <= 0) return false;
      output_.append(buffer, static_cast<size_t>(n));
    }
    return true;
  }

  // The exit status, or absent when the child was killed or still runs
  // after the time allowed.
  std::optional<int> waitForExit() {
    for (Clock::time_point deadline = Clock::now() + kPatience; Clock::now() < deadline;) {
      int status;
      if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        status_ = status;
        waitForOutput("\x01");  // collect the rest of the output
        if (!WIFEXITED(status)) return std::nullopt;
        return WEXITSTATUS(status);
      }
      ::usleep(2000);
    }
    return std::nullopt;
  }

  void interrupt() { ::kill(pid_, SIGINT); }
  const std::string& output() const { return output_; }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
  std::string output_;
  std::optional<int> status_;
};

std::vector<std::string> Environment(const testing::TempDir& dir, bool exitWhenClean) {
  return {"LUMVANE_STATE_DIR=" + dir.file("state"), "LUMVANE_DOVETEL_DIR=" + dir.file("dovetel"),
          "LUMVANE_LOG_TARGET=stderr", "LUMVANE_LOG_LEVEL=debug",
          std::string("LUMVANE_EXIT_WHEN_CLEAN=") + (exitWhenClean ? "1" : "0")};
}

TEST(LumvanedTest, ChecksInWithoutRunningWhenNotDueAndExitsCleanlyOnInterrupt) {
  testing::TempDir dir;
  ::mkdir(dir.file("state").c_str(), 0755);
  const std::string minuteAgo = std::to_string(std::time(nullptr) - 60) + "\n";
  testing::WriteFile(dir.file("state/activity-last-run"), minuteAgo);
  Daemon daemon({}, Environment(dir, /*exitWhenClean=*/false));
  ASSERT_TRUE(daemon.waitForOutput("Checking in")) << daemon.output();
  daemon.interrupt();
  EXPECT_EQ(daemon.waitForExit(), 0) << daemon.output();
  EXPECT_EQ(testing::ReadFile(dir.file("state/activity-last-run")), minuteAgo)
      << "a run took place although none was due";
}

TEST(LumvanedTest, OneShotChecksInRunsAndExitsByItself) {
  testing::TempDir dir;
  // Not tasked on: the run's gate answers at once and the run ends before it
  // would touch the machine-wide guard file.
  ::mkdir(dir.file("dovetel").c_str(), 0755);
  ::mkdir(dir.file("dovetel/configurations").c_str(), 0755);
  testing::WriteFile(dir.file("dovetel/configurations/com.orvel.performance.lumvane_tasking.json"),
                     "{\"TaskedOn\": 0}\n");
  Daemon daemon({}, Environment(dir, /*exitWhenClean=*/true));
  EXPECT_EQ(daemon.waitForExit(), 0) << daemon.output();
  EXPECT_NE(daemon.output().find("Checking in"), std::string::npos) << daemon.output();
  EXPECT_NE(daemon.output().find("Not reporting based on not being tasked-on by Dovetel "
                                 "('TaskedOn' is false)"),
            std::string::npos)
      << daemon.output();
  std::string record = testing::ReadFile(dir.file("state/activity-last-run"));
  ASSERT_FALSE(record.empty()) << "no completed run on record";
  EXPECT_NEAR(std::stoll(record), static_cast<long long>(std::time(nullptr)), 60);
}

TEST(LumvanedTest, TakesNoArguments) {
  testing::TempDir dir;
  Daemon help({"--help"}, Environment(dir, true));
  EXPECT_EQ(help.waitForExit(), 0);
  EXPECT_NE(help.output().find("LUMVANE_EXIT_WHEN_CLEAN"), std::string::npos);
  Daemon wrong({"--once"}, Environment(dir, true));
  EXPECT_EQ(wrong.waitForExit(), 2);
  EXPECT_NE(wrong.output().find("unexpected argument '--once'"), std::string::npos);
}

}  // namespace
}  // namespace lumvane
