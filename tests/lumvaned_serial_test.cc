// Starts the real daemon in a child process with its state in a temporary
// directory and watches what it does from the outside.
#include <gtest/gtest.h>
#include <signal.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <map>

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

// Under a service manager the daemon's standard error is a stream to the
// journal, and JOURNAL_STREAM says so; the daemon then writes structured
// entries instead. A private journald in user, mount and PID namespaces
// plays the journal, its files in the test's directory, and systemd-cat
// connects the daemon's output the way a service manager does.
constexpr char kJournalScript[] = R"(set -eu
mount -t tmpfs tmpfs /run || exit 77
mkdir -p /run/systemd/journal /run/log/journal
mount --bind "$WORK/journal" /run/log/journal || exit 77
/lib/systemd/systemd-journald >"$WORK/journald.out" 2>&1 &
i=0
while [ ! -S /run/systemd/journal/stdout ]; do
  i=$((i + 1)); [ $i -lt 100 ] || { echo "journald did not start" >&2; exit 77; }
  sleep 0.1
done
systemd-cat -t lumvaned-output sh -c \
  'JOURNAL_STREAM=$(stat -L -c %d:%i /proc/self/fd/2) exec "$0"' "$LUMVANED"
journalctl --sync
)";

struct SdJournalClose {
  void operator()(sd_journal* j) const { sd_journal_close(j); }
};

TEST(LumvanedTest, WritesStructuredJournalEntriesWhenStderrIsAJournalStream) {
  for (const char* tool : {"/lib/systemd/systemd-journald", "/usr/bin/unshare",
                           "/usr/bin/systemd-cat", "/usr/bin/journalctl"}) {
    if (::access(tool, X_OK) != 0) GTEST_SKIP() << tool << " is not installed";
  }
  testing::TempDir dir;
  std::filesystem::create_directories(dir.file("work/journal"));
  std::filesystem::create_directory(dir.file("state"));
  testing::WriteFile(dir.file("state/activity-last-run"),
                     std::to_string(std::time(nullptr)) + "\n");
  testing::WriteFile(dir.file("script"), kJournalScript);
  testing::ChildProcess run(
      {"/usr/bin/unshare", "--user", "--map-root-user", "--mount", "--pid", "--fork",
       "--mount-proc", "/bin/sh", dir.file("script")},
      {"WORK=" + dir.file("work"), "LUMVANED=" LUMVANE_BINARY_DIR "/lumvaned",
       "LUMVANE_STATE_DIR=" + dir.file("state"),
       "LUMVANE_DOVETEL_DIR=" + dir.file("dovetel"), "LUMVANE_LOG_LEVEL=debug",
       "LUMVANE_EXIT_WHEN_CLEAN=1"},
      dir.file("run"));
  std::optional<int> status = run.wait(kPatience);
  // 77: the script could not mount or start journald; 1 from unshare itself:
  // no namespaces for this user.
  if (status == 77 || (status == 1 && run.err().find("unshare") != std::string::npos)) {
    GTEST_SKIP() << "no private journald here: " << run.err()
                 << testing::ReadFile(dir.file("work/journald.out"));
  }
  ASSERT_EQ(status, 0) << run.err();

  sd_journal* raw = nullptr;
  ASSERT_GE(sd_journal_open_directory(&raw, dir.file("work/journal").c_str(), 0), 0);
  std::unique_ptr<sd_journal, SdJournalClose> journal(raw);
  std::vector<std::map<std::string, std::string>> daemonEntries;
  size_t outputEntries = 0;
  SD_JOURNAL_FOREACH(journal.get()) {
    std::map<std::string, std::string> fields;
    const void* data;
    size_t length;
    SD_JOURNAL_FOREACH_DATA(journal.get(), data, length) {
      std::string field(static_cast<const char*>(data), length);
      size_t eq = field.find('=');
      fields[field.substr(0, eq)] = field.substr(eq + 1);
    }
    if (fields["SYSLOG_IDENTIFIER"] == "lumvaned") daemonEntries.push_back(fields);
    if (fields["SYSLOG_IDENTIFIER"] == "lumvaned-output") ++outputEntries;
  }
  EXPECT_EQ(outputEntries, 0u) << "the daemon wrote to its standard error";
  ASSERT_FALSE(daemonEntries.empty());
  const std::map<std::string, std::string>& checkIn = daemonEntries.front();
  EXPECT_EQ(checkIn.at("MESSAGE"), "Checking in");
  const std::pair<const char*, const char*> fields[] = {
      {"PRIORITY", "7"},
      {"_TRANSPORT", "journal"},
      {"LUMVANE_SUBSYSTEM", "com.orvel.Vantrel"},
      {"LUMVANE_CATEGORY", "lumvane"},
  };
  for (const auto& [name, value] : fields) {
    EXPECT_EQ(checkIn.count(name) ? checkIn.at(name) : "(missing)", value) << name;
  }
  for (const char* location : {"CODE_FILE", "CODE_LINE", "CODE_FUNC"}) {
    EXPECT_EQ(checkIn.count(location), 0u) << location;
  }
}

}  // namespace
}  // namespace lumvane
