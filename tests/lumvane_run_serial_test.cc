// `lumvane` and the daemon as child processes over stores written here, seen from the outside: the event
// file, the log and the guard file (in the private /var/tmp the serial tests' main gives each run).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "lumvane/CookieFile.h"
#include "lumvane/platform/DovetelEventReader.h"
#include "tests/support/PrivateJournal.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using namespace std::chrono_literals;
using testing::ChildProcess;
using testing::PathExists;
using Fields = std::vector<std::pair<std::string, std::string>>;

constexpr char kGuardFile[] = "/var/tmp/lumvane_running";
constexpr char kEnd[] = "2024-05-01T12:00:00+02:00";
constexpr double kEndSeconds = 1714557600;  // kEnd

// One journal entry in JSON, `seconds` after the epoch; the monotonic clock of the one boot runs along.
std::string Entry(double seconds, const Fields& fields) {
  const auto usec = static_cast<uint64_t>(seconds * 1e6);
  std::string line = "{\"__REALTIME_TIMESTAMP\":\"" + std::to_string(usec) +
                     "\",\"__MONOTONIC_TIMESTAMP\":\"" + std::to_string(usec - 1714000000000000) +
                     "\",\"_BOOT_ID\":\"5d1c0de5b0075a3e8e6f1a2b3c4d5e6f\"";
  for (const auto& [key, value] : fields) line += ",\"" + key + "\":\"" + value + "\"";
  return line + "}\n";
}

// A signpost `name` in `where` (scope, subsystem, category) from process `pid` named `comm` running `exe`.
std::string Signpost(double seconds, const std::string& type, uint64_t id, const std::string& name,
                     const std::array<std::string, 3>& where, int pid, const std::string& comm,
                     const Fields& arguments, const std::string& exe) {
  Fields fields = {{"MESSAGE_ID", "0c7e0296aa5f4fc7af2af7a970a22d31"}, {"MESSAGE", name + " " + type},
                   {"PRIORITY", "6"}, {"_PID", std::to_string(pid)}, {"_COMM", comm}, {"_EXE", exe},
                   {"SIGNPOST_TYPE", type}, {"SIGNPOST_ID", std::to_string(id)},
                   {"SIGNPOST_SCOPE", where[0]}, {"SIGNPOST_SUBSYSTEM", where[1]},
                   {"SIGNPOST_CATEGORY", where[2]}, {"SIGNPOST_NAME", name},
                   {"SIGNPOST_TID", std::to_string(pid)}};
  fields.insert(fields.end(), arguments.begin(), arguments.end());
  return Entry(seconds, fields);
}

// A tap from netmond, or from the program `exe` when given.
std::string Tap(double seconds, uint64_t id, const std::string& zone, bool enabled,
                const std::string& exe = "") {
  Fields arguments = {{"SIGNPOST_STRING1_NAME", "Zone"}, {"SIGNPOST_STRING1_VALUE", zone}};
  if (enabled) arguments.emplace_back("SIGNPOST_TELEMETRY", "1");
  return Signpost(seconds, "event", id, "Tap", {"process", "com.orvel.touch", "Input"},
                  exe.empty() ? 77 : 300, exe.empty() ? "netmond" : "Mailbox", arguments,
                  exe.empty() ? "/usr/libexec/netmond" : exe);
}

// In the day before kEnd: a 1.5 s cold launch composerd -> indexd with a whitelisted string and two
// numbers; another program's entry; taps with "Ext", a private string, no telemetry, "Root", and "Ext" from
// `appDir`/Mailbox. A tap before the day and a line that is no JSON object are outside it.
std::string SmallStore(const std::string& appDir) {
  const double day = kEndSeconds - 7200;  // 10:00 of the day, two hours before its end
  const std::array<std::string, 3> launch = {"system", "com.orvel.launch", "App"};
  return Tap(kEndSeconds - 90000, 9, "Root", true) + "-- Boot 5d1c0de5 --\n" +
         Signpost(day, "begin", 1, "ColdLaunch", launch, 201, "composerd",
                  {{"SIGNPOST_TELEMETRY", "1"}, {"SIGNPOST_STRING1_NAME", "Phase"},
                   {"SIGNPOST_STRING1_VALUE", "Root"}, {"SIGNPOST_NUMBER1_NAME", "Frames"},
                   {"SIGNPOST_NUMBER1_VALUE", "12"}},
                  "/usr/libexec/composerd") +
         Signpost(day + 1.5, "end", 1, "ColdLaunch", launch, 903, "indexd",
                  {{"SIGNPOST_TELEMETRY", "1"}, {"SIGNPOST_NUMBER2_NAME", "Code"},
                   {"SIGNPOST_NUMBER2_VALUE", "-3"}},
                  "/usr/libexec/indexd") +
         Entry(day + 60, {{"MESSAGE", "Touch panel idle"}, {"PRIORITY", "6"}, {"_PID", "77"},
                          {"_COMM", "netmond"}, {"SIGNPOST_NAME", "Tap"}}) +
         Tap(day + 300, 2, "Ext", true) + Tap(day + 360, 3, "secret-user-token", true) +
         Tap(day + 420, 4, "Root", false) + Tap(day + 480, 5, "Root", true) +
         Tap(day + 540, 6, "Ext", true, appDir + "/Mailbox");
}

// The lines of events.ndjson without send times, the boot filesystem type as FS and the duration as D.
std::vector<std::string> Lines(const std::string& file) {
  static const std::regex sent(", \"sent\": [0-9]+\\}$"), fs("\"BootPartitionFS\": \"[^\"]+\""),
      duration("\"ProcessingDurationInSeconds\": [-0-9.e]+");
  std::vector<std::string> lines;
  std::istringstream in(testing::ReadFile(file));
  for (std::string line; std::getline(in, line);) {
    line = std::regex_replace(std::regex_replace(line, sent, "}"), fs, "\"BootPartitionFS\": \"FS\"");
    lines.push_back(std::regex_replace(line, duration, "\"ProcessingDurationInSeconds\": D"));
  }
  return lines;
}

class LumvaneRunTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(PathExists(kGuardFile)) << "the private /var/tmp starts empty";
    ASSERT_TRUE(std::filesystem::create_directory(dir_.file("state")));
    ASSERT_TRUE(std::filesystem::create_directories(dir_.file("dovetel/configurations")));
    setTaskedOn(true);
  }
  // Every run of these tests, whatever its end, must leave no guard file; this is where that is checked.
  void TearDown() override {
    if (PathExists(kGuardFile)) {  // only a run of this test can have left it
      ADD_FAILURE() << "the run left " << kGuardFile << " behind";
      ::unlink(kGuardFile);
    }
  }

  void setTaskedOn(bool on) {
    testing::WriteFile(dir_.file("dovetel/configurations/com.orvel.performance.lumvane_tasking.json"),
                       on ? "{\"TaskedOn\": 1}\n" : "{\"TaskedOn\": 0}\n");
  }
  std::string writeStore(const std::string& contents) {
    testing::WriteFile(dir_.file("store.ndjson"), contents);
    return dir_.file("store.ndjson");
  }
  // `program` (lumvane or lumvaned) with `args`, and the file `input` as its standard input when given.
  std::unique_ptr<ChildProcess> start(const std::string& program, std::vector<std::string> args,
                                      const std::string& input = "", std::vector<std::string> env = {}) {
    args.insert(args.begin(), LUMVANE_BINARY_DIR "/" + program);
    if (!input.empty()) {
      args.insert(args.begin(), {"/bin/sh", "-c", "f=$1; shift; exec \"$@\" < \"$f\"", "sh", input});
    }
    env.insert(env.end(), {"LUMVANE_STATE_DIR=" + dir_.file("state"),
                           "LUMVANE_DOVETEL_DIR=" + dir_.file("dovetel"), "LUMVANE_LOG_LEVEL=debug",
                           "LUMVANE_LOG_TARGET=stderr"});
    return std::make_unique<ChildProcess>(args, env, dir_.file(program));
  }
  // A run over `store`; "-" reads it from the file `input`.
  std::unique_ptr<ChildProcess> startRun(const std::string& store, const std::string& input = "") {
    return start("lumvane",
                 {"run", "--store", store, "--dovetel-dir", dir_.file("dovetel"), "--now", kEnd},
                 input);
  }
  std::vector<DovetelEvent> events() const {
    return ReadDovetelEvents(dir_.file("dovetel/events.ndjson")).events;
  }

  testing::TempDir dir_;
};
using LumvanedTest = LumvaneRunTest;

// A process whose executable sits in an application directory is named by
// the directory's desktop entry; one outside any is named by its command.
TEST_F(LumvaneRunTest, WritesEachAcceptedObjectTwiceThenCountsThenStatisticsKeysInOrder) {
  const std::string appDir = dir_.file("opt/Mailbox.AppDir");
  std::filesystem::create_directories(appDir);
  testing::WriteFile(appDir + "/org.example.Mailbox.desktop", testing::DesktopEntry("Application"));
  auto run = startRun("-", writeStore(SmallStore(appDir)));  // "-": standard input
  ASSERT_EQ(run->wait(60s), 0) << run->err();

  const std::string launch =
      R"({"Subsystem": "com.orvel.launch", "Category": "App", "Name": "ColdLaunch", )"
      R"("String1Name": "Phase", "String1Value": "Root", "Number1Name": "Frames", )"
      R"("Number1Value": 12, "Number2Name": "Code", "Number2Value": -3, )"
      R"("IntervalType": "Interval", "DurationInSeconds": 1.5, "StartProcessName": "composerd", )"
      R"("EndProcessName": "indexd", "BootPartitionFS": "FS", "BootDiskType": "SSD"})";
  auto tap = [](const std::string& zone, const std::string& process = "netmond") {
    return R"({"Subsystem": "com.orvel.touch", "Category": "Input", "Name": "Tap", )"
           R"("String1Name": "Zone", "String1Value": ")" + zone +
           R"(", "IntervalType": "Event", "DurationInSeconds": 0.0, "StartProcessName": ")" +
           process + R"(", "BootPartitionFS": "FS", "BootDiskType": "SSD"})";
  };
  auto line = [](const std::string& name, const std::string& payload) {
    return R"({"name": ")" + name + R"(", "payload": )" + payload + "}";
  };
  auto count = [&](const std::string& subsystem, const std::string& category, int n,
                   const std::string& kind) {
    return line("com.orvel.performance.signpost_counts",
                R"({"Subsystem": ")" + subsystem + R"(", "Category": ")" + category +
                    R"(", "Count": )" + std::to_string(n) + R"(, "Classification": ")" + kind +
                    R"("})");
  };
  const std::string general = "com.orvel.performance.signpost", tapName = "sp__com.orvel.touch__Input__Tap";
  const std::vector<std::string> expected = {
      line(general, launch), line("sp__com.orvel.launch__App__ColdLaunch", launch),
      line(general, tap("Ext")), line(tapName, tap("Ext")),
      line(general, tap("Root")), line(tapName, tap("Root")),
      line(general, tap("Ext", "org.example.Mailbox")), line(tapName, tap("Ext", "org.example.Mailbox")),
      count("com.orvel.touch", "Input", 5, "AllInspected"),
      count("com.orvel.launch", "App", 1, "AllInspected"),
      count("com.orvel.touch", "Input", 3, "Reported"),
      count("com.orvel.launch", "App", 1, "Reported"),
      count("com.orvel.touch", "Input", 3, "ReportedEvents"),
      count("com.orvel.touch", "Input", 1, "StringWhitelistFiltered"),
      line("com.orvel.performance.signpost_reporting_stats",
           R"({"ProcessingDurationInSeconds": D, "LogObjectsProcessed": 7, )"
           R"("AnimationsReported": 0, "IntervalsReported": 1, "EventsReported": 3, )"
           R"("AnimationsNotReported": 0, "IntervalsNotReported": 0, "EventsNotReported": 2, )"
           R"("WasInterrupted": false})")};
  EXPECT_EQ(Lines(dir_.file("dovetel/events.ndjson")), expected);
  EXPECT_EQ(testing::ReadFile(dir_.file("dovetel/events.ndjson")).find("secret-user-token"),
            std::string::npos);
  EXPECT_NE(run->err().find("Done processing 3 reported and 2 unreported events, 1 reported and "
                            "0 unreported intervals"),
            std::string::npos)
      << run->err();
}

// Each way a run ends early has status 1 and a reason naming the path; a
// FIFO or a device as the store is refused at once instead of blocking or
// reading forever.
TEST_F(LumvaneRunTest, EndsWithStatusOneWhenNotTaskedOrTheStoreCannotBeRead) {
  const std::string fifo = dir_.file("fifo.ndjson"), missing = dir_.file("no-such-store");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const std::string unreadable = "lumvane: the signpost store could not be read: cannot ";
  const struct {
    bool tasked;
    std::string store, reason;
  } rows[] = {
      {false, writeStore(SmallStore(dir_.path())), "not tasked"},
      {true, missing, unreadable + "open " + missing + ": No such file or directory"},
      {true, fifo, unreadable + "read " + fifo + ": not a regular file"},
      {true, "/dev/zero", unreadable + "read /dev/zero: not a regular file"},
  };
  for (const auto& row : rows) {
    setTaskedOn(row.tasked);
    auto run = startRun(row.store);
    EXPECT_EQ(run->wait(30s), 1) << run->err();
    EXPECT_NE(run->err().find(row.reason), std::string::npos) << run->err();
    if (row.tasked) continue;
    EXPECT_FALSE(PathExists(dir_.file("dovetel/events.ndjson")));
    // Nothing was reported, so the throttle never came into being.
    EXPECT_EQ(run->err().find("clock ticks per quantum"), std::string::npos) << run->err();
  }
}

TEST_F(LumvaneRunTest, BothProgramsAnswerUsageWithTheirExitStatus) {
  const struct {
    std::string program;
    std::vector<std::string> args;
    int status;
    std::string text;  // on standard output for status 0, else on standard error
  } rows[] = {
      {"lumvane", {"--help"}, 0, "usage: lumvane run"},
      {"lumvane", {"run", "--bogus"}, 2, "usage: lumvane run"},
      {"lumvane", {"frobnicate"}, 2, "usage: lumvane run"},
      {"lumvane", {}, 2, "usage: lumvane run"},
      {"lumvane", {"run", "--now", "noon"}, 2, "usage: lumvane run"},
      {"lumvaned", {"--help"}, 0, "LUMVANE_EXIT_WHEN_CLEAN"},
      {"lumvaned", {"--once"}, 2, "unexpected argument '--once'"},
  };
  for (const auto& row : rows) {
    auto child = start(row.program, row.args);
    EXPECT_EQ(child->wait(10s), row.status) << row.program << " " << row.args.size();
    const std::string said = row.status == 0 ? child->out() : child->err();
    EXPECT_NE(said.find(row.text), std::string::npos) << said;
  }
  EXPECT_FALSE(PathExists(dir_.file("dovetel/events.ndjson")));
}

// SIGINT ends the daemon at once with status 0 and leaves the guard file of
// the run it cut short; the next run clears it instead of processing.
TEST_F(LumvaneRunTest, InterruptEndsTheDaemonAndLeavesTheGuardFileForTheNextRunToClear) {
  std::string taps;  // 2000 reportable taps, one a second, the last an hour ago
  for (int i = 0; i < 2000; ++i) taps += Tap(std::time(nullptr) - 5600 + i, 100 + i, "Ext", true);
  const std::string store = writeStore(taps);
  // The daemon ends by design with its run's threads still at work, which a
  // ThreadSanitizer build would otherwise report as leaked threads.
  const char* tsan = std::getenv("TSAN_OPTIONS");
  auto daemon = start("lumvaned", {}, "",
                      {"LUMVANE_SIGNPOST_STORE=" + store,
                       std::string("TSAN_OPTIONS=") + (tsan ? std::string(tsan) + ":" : "") +
                           "report_thread_leaks=0"});
  for (auto deadline = std::chrono::steady_clock::now() + 20s;
       events().size() < 4 && std::chrono::steady_clock::now() < deadline;) {
    std::this_thread::sleep_for(20ms);
  }
  ASSERT_GE(events().size(), 4u) << daemon->err();
  ASSERT_TRUE(PathExists(kGuardFile));
  daemon->signal(SIGINT);
  EXPECT_EQ(daemon->wait(20s), 0) << daemon->err();
  EXPECT_TRUE(PathExists(kGuardFile)) << "the interrupted run removed its guard file";
  EXPECT_EQ(daemon->err().find("Cleared cookie file"), std::string::npos) << daemon->err();
  EXPECT_EQ(daemon->err().find("Done processing"), std::string::npos) << daemon->err();

  const size_t before = events().size();
  auto next = startRun(store);
  EXPECT_EQ(next->wait(30s), 1) << next->err();
  EXPECT_NE(next->err().find("Bailing due to cookie file"), std::string::npos) << next->err();
  EXPECT_EQ(events().size(), before) << "the run after an interrupted one processed";
}

// The defer file ends a run at its next poll, here one reading an endless
// line on standard input: the stop ends the read inside the line, and the
// run reports as interrupted.
TEST_F(LumvaneRunTest, DeferralEndsARunReadingAnEndlessLine) {
  auto run = startRun("-", "/dev/zero");
  ASSERT_TRUE(run->waitForError("Deferral not requested, continuing.", 10s)) << run->err();
  // The next poll comes within the period plus the leeway, 20 s.
  testing::WriteFile(dir_.file("state/defer"), "");
  ASSERT_EQ(run->wait(30s), 0) << run->err();
  EXPECT_NE(run->err().find("Concluding processing due to deferral request"), std::string::npos)
      << run->err();
  EXPECT_NE(run->err().find("(Interrupted by deferral)"), std::string::npos) << run->err();
  const std::vector<DovetelEvent> sent = events();
  ASSERT_FALSE(sent.empty());
  EXPECT_EQ(sent.back().name, "com.orvel.performance.signpost_reporting_stats");
  const Value* interrupted = sent.back().payload.find("WasInterrupted");
  EXPECT_TRUE(interrupted && *interrupted == Value(Number::fromBool(true)));
}

TEST_F(LumvanedTest, OneShotChecksInRunsAndExitsByItself) {
  setTaskedOn(false);  // the run ends at its gate, before the guard file
  auto daemon = start("lumvaned", {}, "", {"LUMVANE_EXIT_WHEN_CLEAN=1"});
  EXPECT_EQ(daemon->wait(20s), 0) << daemon->err();
  const std::string log = daemon->err();
  size_t gate = log.find("Not reporting based on not being tasked-on by Dovetel ('TaskedOn' is false)");
  ASSERT_NE(gate, std::string::npos) << log;
  EXPECT_LT(log.find("Checking in"), gate) << log;
  const std::string record = testing::ReadFile(dir_.file("state/activity-last-run"));
  ASSERT_FALSE(record.empty()) << "no completed run on record";
  EXPECT_NEAR(std::stoll(record), static_cast<long long>(std::time(nullptr)), 60);
}

// With JOURNAL_STREAM naming its standard error, the daemon writes structured entries instead; a private
// journald plays the journal, and systemd-cat connects the daemon's output as a service manager does.
TEST_F(LumvanedTest, WritesStructuredJournalEntriesWhenStderrIsAJournalStream) {
  if (::access("/usr/bin/systemd-cat", X_OK) != 0) GTEST_SKIP() << "systemd-cat is not installed";
  testing::PrivateJournal::Started started = testing::PrivateJournal::Start();
  if (!started.skip.empty()) GTEST_SKIP() << started.skip;
  ASSERT_EQ(started.error, "");
  // A run a moment ago: the daemon only checks in, then ends.
  const std::string lastRun = std::to_string(std::time(nullptr)) + "\n";
  testing::WriteFile(dir_.file("state/activity-last-run"), lastRun);
  ChildProcess run({"/usr/bin/systemd-cat", "-t", "lumvaned-output", "/bin/sh", "-c",
                    "JOURNAL_STREAM=$(stat -L -c %d:%i /proc/self/fd/2) exec \"$0\"",
                    LUMVANE_BINARY_DIR "/lumvaned"},
                   {"LUMVANE_STATE_DIR=" + dir_.file("state"), "LUMVANE_DOVETEL_DIR=" + dir_.file("dovetel"),
                    "LUMVANE_LOG_LEVEL=debug", "LUMVANE_EXIT_WHEN_CLEAN=1"},
                   dir_.file("run"));
  ASSERT_EQ(run.wait(20s), 0) << run.err();
  ASSERT_EQ(started.journal->sync(), "");
  EXPECT_EQ(testing::ReadFile(dir_.file("state/activity-last-run")), lastRun)
      << "a run took place although none was due";

  sd_journal* raw = nullptr;
  ASSERT_GE(sd_journal_open_directory(&raw, testing::PrivateJournal::kDirectory, 0), 0);
  std::unique_ptr<sd_journal, void (*)(sd_journal*)> journal(raw, sd_journal_close);
  std::vector<std::map<std::string, std::string>> entries;  // the daemon's own
  SD_JOURNAL_FOREACH(journal.get()) {
    std::map<std::string, std::string> fields;
    const void* data;
    size_t length;
    SD_JOURNAL_FOREACH_DATA(journal.get(), data, length) {
      std::string field(static_cast<const char*>(data), length);
      fields[field.substr(0, field.find('='))] = field.substr(field.find('=') + 1);
    }
    EXPECT_NE(fields["SYSLOG_IDENTIFIER"], "lumvaned-output") << "the daemon wrote to its standard error";
    if (fields["SYSLOG_IDENTIFIER"] == "lumvaned") entries.push_back(fields);
  }
  ASSERT_FALSE(entries.empty());
  std::map<std::string, std::string>& checkIn = entries.front();
  const std::pair<const char*, const char*> fields[] = {
      {"MESSAGE", "Checking in"}, {"PRIORITY", "7"}, {"_TRANSPORT", "journal"},
      {"LUMVANE_SUBSYSTEM", "com.orvel.Vantrel"}, {"LUMVANE_CATEGORY", "lumvane"},
      {"CODE_FILE", ""}, {"CODE_LINE", ""}, {"CODE_FUNC", ""},  // no source locations
  };
  for (const auto& [name, value] : fields) EXPECT_EQ(checkIn[name], value) << name;
}

// The guard file's own fixed path, in the private /var/tmp.
TEST(CookieFileSerialTest, FixedPathRoundTrip) {
  testing::ScopedLogCapture capture;
  EXPECT_FALSE(cookieFileExists());
  ASSERT_TRUE(createCookieFile());
  EXPECT_TRUE(cookieFileExists());
  EXPECT_EQ(testing::ReadFile(kGuardFile), "");
  clearCookieFile();
  EXPECT_FALSE(PathExists(kGuardFile));
  EXPECT_EQ(capture.log().messages(),
            (std::vector<std::string>{"Created cookie file", "Cleared cookie file"}));
}

}  // namespace
}  // namespace lumvane
