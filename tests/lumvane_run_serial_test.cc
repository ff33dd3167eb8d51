// Runs the `lumvane` command and the daemon as child processes over signpost
// stores written here, and checks from the outside what they append to the
// telemetry service's event file and what becomes of the guard file. Every
// expectation is written out from the store the test wrote. A run takes the
// guard file under /var/tmp; the serial tests' main gives it a private one.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "lumvane/platform/DovetelEventReader.h"
#include "tests/support/TestSupport.h"
#include "tests/support/platform/FakeInternalDiagnosticsCheck.h"

namespace lumvane {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::ChildProcess;
using testing::PathExists;

constexpr char kGuardFile[] = "/var/tmp/lumvane_running";
constexpr char kDiagnosticsMarker[] = "/etc/lumvane/internal-diagnostics";
constexpr char kEnd[] = "2024-05-01T12:00:00+02:00";

using Fields = std::vector<std::pair<std::string, std::string>>;

// One journal entry as `journalctl -o json` writes it, `seconds` after the
// epoch on the wall clock; the monotonic clock of the one boot runs along.
std::string Entry(double seconds, const Fields& fields) {
  const auto usec = static_cast<uint64_t>(seconds * 1e6);
  std::string line = "{\"__REALTIME_TIMESTAMP\":\"" + std::to_string(usec) +
                     "\",\"__MONOTONIC_TIMESTAMP\":\"" +
                     std::to_string(usec - 1714000000000000) +
                     "\",\"_BOOT_ID\":\"5d1c0de5b0075a3e8e6f1a2b3c4d5e6f\"";
  for (const auto& [key, value] : fields) line += ",\"" + key + "\":\"" + value + "\"";
  return line + "}\n";
}

// A signpost entry of process `pid`, running `exe` (by default
// /usr/libexec/`comm`).
std::string Signpost(double seconds, const std::string& type, uint64_t id, const std::string& name,
                     const std::string& scope, const std::string& subsystem,
                     const std::string& category, int pid, const std::string& comm,
                     Fields arguments, const std::string& exe = "") {
  Fields fields = {{"MESSAGE_ID", "0c7e0296aa5f4fc7af2af7a970a22d31"},
                   {"MESSAGE", name + " " + type},
                   {"PRIORITY", "6"},
                   {"_PID", std::to_string(pid)},
                   {"_COMM", comm},
                   {"_EXE", exe.empty() ? "/usr/libexec/" + comm : exe},
                   {"SIGNPOST_TYPE", type},
                   {"SIGNPOST_ID", std::to_string(id)},
                   {"SIGNPOST_SCOPE", scope},
                   {"SIGNPOST_SUBSYSTEM", subsystem},
                   {"SIGNPOST_CATEGORY", category},
                   {"SIGNPOST_NAME", name},
                   {"SIGNPOST_TID", std::to_string(pid)}};
  fields.insert(fields.end(), arguments.begin(), arguments.end());
  return Entry(seconds, fields);
}

constexpr double kEndSeconds = 1714557600;  // kEnd

// A tap from netmond, or from the program `exe` when given.
std::string Tap(double seconds, uint64_t id, const std::string& zone, bool enabled,
                const std::string& exe = "") {
  Fields arguments = {{"SIGNPOST_STRING1_NAME", "Zone"}, {"SIGNPOST_STRING1_VALUE", zone}};
  if (enabled) arguments.emplace_back("SIGNPOST_TELEMETRY", "1");
  return Signpost(seconds, "event", id, "Tap", "process", "com.orvel.touch", "Input",
                  exe.empty() ? 77 : 300, exe.empty() ? "netmond" : "Mailbox", arguments, exe);
}

// The day before kEnd holds, in this order: a cold launch from composerd
// (begin) to indexd (end), 1.5 s long, with a whitelisted string and two
// numbers; another program's log entry; a tap with "Ext"; a tap with a
// private string; a tap without telemetry; a tap with "Root"; a tap with
// "Ext" from `appDir`/Mailbox. A tap before the day and a line that is no
// JSON object are not part of it.
std::string SmallStore(const std::string& appDir) {
  const double day = kEndSeconds - 7200;  // 10:00 of the day, two hours before its end
  return Tap(kEndSeconds - 90000, 9, "Root", true) + "-- Boot 5d1c0de5 --\n" +
         Signpost(day, "begin", 1, "ColdLaunch", "system", "com.orvel.launch", "App", 201,
                  "composerd",
                  {{"SIGNPOST_TELEMETRY", "1"},
                   {"SIGNPOST_STRING1_NAME", "Phase"},
                   {"SIGNPOST_STRING1_VALUE", "Root"},
                   {"SIGNPOST_NUMBER1_NAME", "Frames"},
                   {"SIGNPOST_NUMBER1_VALUE", "12"}}) +
         Signpost(day + 1.5, "end", 1, "ColdLaunch", "system", "com.orvel.launch", "App", 903,
                  "indexd",
                  {{"SIGNPOST_TELEMETRY", "1"},
                   {"SIGNPOST_NUMBER2_NAME", "Code"},
                   {"SIGNPOST_NUMBER2_VALUE", "-3"}}) +
         Entry(day + 60, {{"MESSAGE", "Touch panel idle"},
                          {"PRIORITY", "6"},
                          {"_PID", "77"},
                          {"_COMM", "netmond"},
                          {"SIGNPOST_NAME", "Tap"}}) +
         Tap(day + 300, 2, "Ext", true) + Tap(day + 360, 3, "secret-user-token", true) +
         Tap(day + 420, 4, "Root", false) + Tap(day + 480, 5, "Root", true) +
         Tap(day + 540, 6, "Ext", true, appDir + "/Mailbox");
}

// `count` reportable taps, one a second, the last an hour before `end`.
std::string TapStore(size_t count, std::time_t end) {
  std::string store;
  for (size_t i = 0; i < count; ++i) {
    const double t = static_cast<double>(end) - 3600 - static_cast<double>(count - i);
    store += Tap(t, 100 + i, i % 2 ? "Ext" : "Root", true);
  }
  return store;
}

// The lines of events.ndjson without their send times, with the machine's
// boot filesystem type shown as FS and the statistics event's duration as D.
std::vector<std::string> Lines(const std::string& file) {
  static const std::regex sent(", \"sent\": [0-9]+\\}$");
  static const std::regex fs("\"BootPartitionFS\": \"[^\"]+\"");
  static const std::regex duration("\"ProcessingDurationInSeconds\": [-0-9.e]+");
  std::vector<std::string> lines;
  std::istringstream in(testing::ReadFile(file));
  for (std::string line; std::getline(in, line);) {
    line = std::regex_replace(line, sent, "}");
    line = std::regex_replace(line, fs, "\"BootPartitionFS\": \"FS\"");
    lines.push_back(std::regex_replace(line, duration, "\"ProcessingDurationInSeconds\": D"));
  }
  return lines;
}

class LumvaneRunTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // The private /var/tmp and /etc/lumvane start empty.
    ASSERT_FALSE(PathExists(kGuardFile));
    ASSERT_FALSE(PathExists(kDiagnosticsMarker));
    ASSERT_TRUE(std::filesystem::create_directory(dir_.file("state")));
    ASSERT_TRUE(std::filesystem::create_directories(dir_.file("dovetel/configurations")));
    setTaskedOn(true);
  }

  void TearDown() override {
    // Only a run of this test can have left it: it was absent before.
    if (PathExists(kGuardFile)) {
      ADD_FAILURE() << "the run left " << kGuardFile << " behind";
      ::unlink(kGuardFile);
    }
  }

  void setTaskedOn(bool on) {
    const std::string config = "dovetel/configurations/com.orvel.performance.lumvane_tasking.json";
    testing::WriteFile(dir_.file(config), on ? "{\"TaskedOn\": 1}\n" : "{\"TaskedOn\": 0}\n");
  }

  std::string writeStore(const std::string& contents) {
    const std::string store = dir_.file("store.ndjson");
    testing::WriteFile(store, contents);
    return store;
  }

  std::vector<std::string> environment() const {
    return {"LUMVANE_STATE_DIR=" + dir_.file("state"),
            "LUMVANE_DOVETEL_DIR=" + dir_.file("dovetel"), "LUMVANE_LOG_LEVEL=debug",
            "LUMVANE_LOG_TARGET=stderr"};
  }

  // `input`, when not empty, is a file to give the command as its standard
  // input.
  std::unique_ptr<ChildProcess> start(std::vector<std::string> args,
                                      const std::string& input = "") {
    args.insert(args.begin(), LUMVANE_BINARY_DIR "/lumvane");
    if (!input.empty()) {
      args.insert(args.begin(),
                  {"/bin/sh", "-c", "f=$1; shift; exec \"$@\" < \"$f\"", "sh", input});
    }
    return std::make_unique<ChildProcess>(args, environment(), dir_.file("lumvane"));
  }

  // A run over `store`; "-" reads it from the file `input`.
  std::unique_ptr<ChildProcess> startRun(const std::string& store, const std::string& input = "") {
    return start({"run", "--store", store, "--dovetel-dir", dir_.file("dovetel"), "--now", kEnd},
                 input);
  }

  std::vector<DovetelEvent> events() const {
    return ReadDovetelEvents(dir_.file("dovetel/events.ndjson")).events;
  }

  // Waits until the event file holds `count` events.
  bool waitForEvents(size_t count) {
    for (Clock::time_point deadline = Clock::now() + 20s; Clock::now() < deadline;) {
      if (events().size() >= count) return true;
      std::this_thread::sleep_for(20ms);
    }
    return false;
  }

  testing::TempDir dir_;
};

// A process whose executable sits in an application directory is named by
// the directory's desktop entry; one outside any is named by its command.
TEST_F(LumvaneRunTest, WritesEachAcceptedObjectTwiceThenCountsThenStatisticsKeysInOrder) {
  const std::string appDir = dir_.file("opt/Mailbox.AppDir");
  std::filesystem::create_directories(appDir);
  testing::WriteFile(appDir + "/org.example.Mailbox.desktop", testing::DesktopEntry("Application"));
  auto run = startRun("-", writeStore(SmallStore(appDir)));  // "-": standard input
  ASSERT_EQ(run->wait(60s), 0) << run->err();
  EXPECT_FALSE(PathExists(kGuardFile));

  const std::string launch =
      R"({"Subsystem": "com.orvel.launch", "Category": "App", "Name": "ColdLaunch", )"
      R"("String1Name": "Phase", "String1Value": "Root", "Number1Name": "Frames", )"
      R"("Number1Value": 12, "Number2Name": "Code", "Number2Value": -3, )"
      R"("IntervalType": "Interval", "DurationInSeconds": 1.5, "StartProcessName": "composerd", )"
      R"("EndProcessName": "indexd", "BootPartitionFS": "FS", "BootDiskType": "SSD"})";
  auto tap = [](const char* zone, const char* process = "netmond") {
    return std::string(R"({"Subsystem": "com.orvel.touch", "Category": "Input", "Name": "Tap", )"
                       R"("String1Name": "Zone", "String1Value": ")") +
           zone +
           R"(", "IntervalType": "Event", "DurationInSeconds": 0.0, )"
           R"("StartProcessName": ")" + process +
           R"(", "BootPartitionFS": "FS", "BootDiskType": "SSD"})";
  };
  auto line = [](const std::string& name, const std::string& payload) {
    return R"({"name": ")" + name + R"(", "payload": )" + payload + "}";
  };
  auto count = [&](const char* subsystem, const char* category, int n, const char* kind) {
    return line("com.orvel.performance.signpost_counts",
                std::string(R"({"Subsystem": ")") + subsystem + R"(", "Category": ")" + category +
                    R"(", "Count": )" + std::to_string(n) + R"(, "Classification": ")" + kind +
                    R"("})");
  };
  const std::string general = "com.orvel.performance.signpost";
  const std::vector<std::string> expected = {
      line(general, launch),
      line("sp__com.orvel.launch__App__ColdLaunch", launch),
      line(general, tap("Ext")),
      line("sp__com.orvel.touch__Input__Tap", tap("Ext")),
      line(general, tap("Root")),
      line("sp__com.orvel.touch__Input__Tap", tap("Root")),
      line(general, tap("Ext", "org.example.Mailbox")),
      line("sp__com.orvel.touch__Input__Tap", tap("Ext", "org.example.Mailbox")),
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
    EXPECT_FALSE(PathExists(kGuardFile));
    if (row.tasked) continue;
    EXPECT_FALSE(PathExists(dir_.file("dovetel/events.ndjson")));
    // Nothing was reported, so the throttle never came into being.
    EXPECT_EQ(run->err().find("clock ticks per quantum"), std::string::npos) << run->err();
  }
}

TEST_F(LumvaneRunTest, AnswersUsageWithItsExitStatus) {
  auto help = start({"--help"});
  EXPECT_EQ(help->wait(10s), 0);
  EXPECT_NE(help->out().find("usage: lumvane run"), std::string::npos) << help->out();
  for (std::vector<std::string> args :
       {std::vector<std::string>{"run", "--bogus"}, {"frobnicate"}, {}, {"run", "--now", "noon"}}) {
    auto wrong = start(args);
    EXPECT_EQ(wrong->wait(10s), 2) << wrong->err();
    EXPECT_NE(wrong->err().find("usage: lumvane run"), std::string::npos) << wrong->err();
  }
  EXPECT_FALSE(PathExists(dir_.file("dovetel/events.ndjson")));
}

// SIGINT ends the daemon at once with status 0 and leaves the guard file of
// the run it cut short; the next run clears it instead of processing.
TEST_F(LumvaneRunTest, InterruptEndsTheDaemonAndLeavesTheGuardFileForTheNextRunToClear) {
  const std::string store = writeStore(TapStore(2000, std::time(nullptr)));
  std::vector<std::string> env = environment();
  env.push_back("LUMVANE_SIGNPOST_STORE=" + store);
  // The daemon ends by design with its run's threads still at work, which a
  // ThreadSanitizer build would otherwise report as leaked threads.
  const char* tsan = std::getenv("TSAN_OPTIONS");
  env.push_back(std::string("TSAN_OPTIONS=") + (tsan ? std::string(tsan) + ":" : "") +
                "report_thread_leaks=0");
  ChildProcess daemon({LUMVANE_BINARY_DIR "/lumvaned"}, env, dir_.file("lumvaned"));
  ASSERT_TRUE(waitForEvents(4)) << daemon.err();
  ASSERT_TRUE(PathExists(kGuardFile));
  daemon.signal(SIGINT);
  EXPECT_EQ(daemon.wait(20s), 0) << daemon.err();
  EXPECT_TRUE(PathExists(kGuardFile)) << "the interrupted run removed its guard file";
  EXPECT_EQ(daemon.err().find("Cleared cookie file"), std::string::npos) << daemon.err();
  EXPECT_EQ(daemon.err().find("Done processing"), std::string::npos) << daemon.err();

  const size_t before = events().size();
  auto next = startRun(store);
  EXPECT_EQ(next->wait(30s), 1) << next->err();
  EXPECT_NE(next->err().find("Bailing due to cookie file"), std::string::npos) << next->err();
  EXPECT_FALSE(PathExists(kGuardFile));
  EXPECT_EQ(events().size(), before) << "the run after an interrupted one processed";
}

// The defer file ends a run at its next poll, here one reading an endless
// line on standard input: the stop ends the read inside the line, and the
// run reports as interrupted.
TEST_F(LumvaneRunTest, DeferralEndsARunReadingAnEndlessLine) {
  auto run = startRun("-", "/dev/zero");
  ASSERT_TRUE(run->waitForError("Deferral not requested, continuing.", 10s)) << run->err();
  // The next poll comes within the period plus the leeway, 20 s; the stop it
  // makes ends the read inside the line at once.
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
  EXPECT_FALSE(PathExists(kGuardFile));
}

}  // namespace
}  // namespace lumvane
