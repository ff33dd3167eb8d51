#include "lumvane/platform/LogBackend.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/PrivateVarTmp.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::StartsWith;

std::string Prefix(pid_t pid) { return "lumvane_platform_tests[" + std::to_string(pid) + "]: "; }

TEST(LogBackendTest, StderrRecordsCarryProgramLevelAndHandleAndContinueWithoutPrefix) {
  testing::TempDir dir;
  int fd = ::open(dir.file("err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0);
  auto backend = NewStderrLogBackend(LogLevel::Info, fd);
  backend->write(LogLevel::Info, "com.orvel.Vantrel", "lumvane", "Done processing 3 objects");
  backend->write(LogLevel::Debug, "com.orvel.Vantrel", "lumvane", "below the threshold");
  backend->write(LogLevel::Error, "sub", "cat", "first\nsecond\n");
  backend->write(LogLevel::Info, "sub", "cat", "");
  ::close(fd);
  const std::string p = Prefix(::getpid());
  EXPECT_EQ(testing::ReadFile(dir.file("err")),
            p + "info com.orvel.Vantrel/lumvane: Done processing 3 objects\n" + p +
                "error sub/cat: first\nsecond\n" + p + "info sub/cat: \n");
}

TEST(LogBackendTest, TargetComesFromTheVariableElseFromTheJournalStream) {
  testing::TempDir dir;
  int fd = ::open(dir.file("err").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0);
  struct stat st;
  ASSERT_EQ(::fstat(fd, &st), 0);
  const std::string dev = std::to_string(st.st_dev), ino = std::to_string(st.st_ino);
  const std::string match = dev + ":" + ino, otherInode = dev + ":" + std::to_string(st.st_ino + 1);
  const struct {
    const char* target;
    std::optional<std::string> stream;
    LogTarget expected;
    bool complains;
  } cases[] = {
      {nullptr, std::nullopt, LogTarget::Stderr, false},  {nullptr, match, LogTarget::Journal, false},
      {"", match, LogTarget::Journal, false},             {nullptr, otherInode, LogTarget::Stderr, false},
      {nullptr, match + ":", LogTarget::Stderr, false},   {nullptr, dev, LogTarget::Stderr, false},
      {nullptr, ":" + ino, LogTarget::Stderr, false},     {nullptr, "-" + match, LogTarget::Stderr, false},
      {"stderr", match, LogTarget::Stderr, false},        {"syslog", match, LogTarget::Syslog, false},
      {"journal", std::nullopt, LogTarget::Journal, false}, {"JOURNAL", match, LogTarget::Journal, true},
      {"file", std::nullopt, LogTarget::Stderr, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.target ? c.target : "(unset)") + " / " + c.stream.value_or("(unset)"));
    testing::ScopedEnv target("LUMVANE_LOG_TARGET", c.target);
    testing::ScopedEnv stream("JOURNAL_STREAM", c.stream ? c.stream->c_str() : nullptr);
    ASSERT_EQ(::ftruncate(fd, 0), 0);
    ASSERT_EQ(::lseek(fd, 0, SEEK_SET), 0);
    EXPECT_EQ(LogTargetFromEnvironment(fd), c.expected);
    const std::string said = testing::ReadFile(dir.file("err"));
    EXPECT_EQ(said.rfind("lumvane: LUMVANE_LOG_TARGET=", 0) == 0, c.complains) << said;
  }
  ::close(fd);
}

// glibc's syslog(3) writes datagrams to /dev/log: the child listens there
// itself and answers the datagrams, each ended by a NUL.
std::string SyslogBody() {
  int sock = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  struct sockaddr_un addr = {};
  addr.sun_family = AF_UNIX;
  std::strcpy(addr.sun_path, "/dev/log");
  if (sock < 0 || ::bind(sock, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) ::_exit(1);
  auto backend = NewSyslogLogBackend(LogLevel::Info);
  backend->write(LogLevel::Debug, "sub", "cat", "below the threshold");
  backend->write(LogLevel::Info, "com.orvel.Vantrel", "lumvane", "first\nsecond\n");
  backend->write(LogLevel::Error, "sub", "cat", "cookie file: gone");
  std::string received;
  for (int i = 0; i < 2; ++i) {
    char buf[2048];
    ssize_t n = ::recv(sock, buf, sizeof buf, 0);
    if (n < 0) ::_exit(2);
    received.append(buf, static_cast<size_t>(n)).push_back('\0');
  }
  return received;
}

TEST(LogBackendTest, SyslogDatagramsCarryPriorityTagAndRecordText) {
  std::string whyNot;
  pid_t pid = -1;
  const auto received = testing::RunInPrivateTmpfs("/dev", "mode=755", SyslogBody, &whyNot, &pid);
  if (!received) GTEST_SKIP() << "no private /dev: " << whyNot;
  std::vector<std::string> datagrams;
  std::istringstream in(*received);
  for (std::string d; std::getline(in, d, '\0');) datagrams.push_back(d);
  // Facility daemon (3 << 3) plus the level's priority: info 6, error 3.
  const std::string p = Prefix(pid);
  EXPECT_THAT(datagrams,
              ::testing::ElementsAre(
                  AllOf(StartsWith("<30>"), EndsWith(p + "info com.orvel.Vantrel/lumvane: first\nsecond")),
                  AllOf(StartsWith("<27>"), EndsWith(p + "error sub/cat: cookie file: gone"))));
}

// With no journal to take it (a private, empty /run), an entry goes to
// standard error as a stderr record instead of being lost.
TEST(LogBackendTest, JournalEntriesFallBackToStderrWhenNoJournalListens) {
  std::string whyNot;
  pid_t pid = -1;
  const auto said = testing::RunInPrivateTmpfs("/run", "mode=755", [] {
    ::dup2(::open("/run/err", O_RDWR | O_CREAT, 0600), STDERR_FILENO);
    NewJournalLogBackend(LogLevel::Debug)->write(LogLevel::Info, "sub", "cat", "kept\n");
    return testing::ReadFile("/run/err");
  }, &whyNot, &pid);
  if (!said) GTEST_SKIP() << "no private /run: " << whyNot;
  EXPECT_EQ(*said, Prefix(pid) + "info sub/cat: kept\n");
}

}  // namespace
}  // namespace lumvane
