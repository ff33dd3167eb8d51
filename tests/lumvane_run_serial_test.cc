// Runs the `lumvane` command and the daemon as child processes over signpost
// stores written here, and checks from the outside what they append to the
// telemetry service's event file and what becomes of the guard file. Every
// expectation is written out from the store the test wrote. A run takes the
// guard file under /var/tmp; the serial tests' main gives it a private one.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <chrono>
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

std::string Tap(double seconds, uint64_t id, const std::string& zone, bool enabled) {
  Fields arguments = {{"SIGNPOST_STRING1_NAME", "Zone"}, {"SIGNPOST_STRING1_VALUE", zone}};
  if (enabled) arguments.emplace_back("SIGNPOST_TELEMETRY", "1");
  return Signpost(seconds, "event", id, "Tap", "process", "com.orvel.touch", "Input", 77,
                  "netmond", arguments);
}

// The day before kEnd holds, in this order: a cold launch from composerd
// (begin) to indexd (end), 1.5 s long, with a whitelisted string and two
// numbers; another program's log entry; a tap with "Ext"; a tap with a
// private string; a tap without telemetry; a tap with "Root". A tap before
// the day and a line that is no JSON object are not part of it.
std::string SmallStore() {
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
         Tap(day + 420, 4, "Root", false) + Tap(day + 480, 5, "Root", true);
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

  std::unique_ptr<ChildProcess> startRun(const std::string& store) {
    return start({"run", "--store", store, "--dovetel-dir", dir_.file("dovetel"), "--now", kEnd});
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

TEST_F(LumvaneRunTest, WritesEachAcceptedObjectTwiceThenCountsThenStatisticsKeysInOrder) {
  auto run = startRun(writeStore(SmallStore()));
  ASSERT_EQ(run->wait(60s), 0) << run->err();
  EXPECT_FALSE(PathExists(kGuardFile));

  const std::string launch =
      R"({"Subsystem": "com.orvel.launch", "Category": "App", "Name": "ColdLaunch", )"
      R"("String1Name": "Phase", "String1Value": "Root", "Number1Name": "Frames", )"
      R"("Number1Value": 12, "Number2Name": "Code", "Number2Value": -3, )"
      R"("IntervalType": "Interval", "DurationInSeconds": 1.5, "StartProcessName": "composerd", )"
      R"("EndProcessName": "indexd", "BootPartitionFS": "FS", "BootDiskType": "SSD"})";
  auto tap = [](const char* zone) {
    return std::string(R"({"Subsystem": "com.orvel.touch", "Category": "Input", "Name": "Tap", )"
                       R"("String1Name": "Zone", "String1Value": ")") +
           zone +
           R"(", "IntervalType": "Event", "DurationInSeconds": 0.0, )"
           R"("StartProcessName": "netmond", "BootPartitionFS": "FS", "BootDiskType": "SSD"})";
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
      count("com.orvel.touch", "Input", 4, "AllInspected"),
      count("com.orvel.launch", "App", 1, "AllInspected"),
      count("com.orvel.touch", "Input", 2, "Reported"),
      count("com.orvel.launch", "App", 1, "Reported"),
      count("com.orvel.touch", "Input", 2, "ReportedEvents"),
      count("com.orvel.touch", "Input", 1, "StringWhitelistFiltered"),
      line("com.orvel.performance.signpost_reporting_stats",
           R"({"ProcessingDurationInSeconds": D, "LogObjectsProcessed": 6, )"
           R"("AnimationsReported": 0, "IntervalsReported": 1, "EventsReported": 2, )"
           R"("AnimationsNotReported": 0, "IntervalsNotReported": 0, "EventsNotReported": 2, )"
           R"("WasInterrupted": false})")};
  EXPECT_EQ(Lines(dir_.file("dovetel/events.ndjson")), expected);
  EXPECT_EQ(testing::ReadFile(dir_.file("dovetel/events.ndjson")).find("secret-user-token"),
            std::string::npos);
  EXPECT_NE(run->err().find("Done processing 2 reported and 2 unreported events, 1 reported and "
                            "0 unreported intervals"),
            std::string::npos)
      << run->err();
}

// A process whose executable sits in an application directory is named by
// the directory's desktop entry; one outside any is named by its command.
TEST_F(LumvaneRunTest, NamesAProcessOfAnApplicationDirectoryByItsDesktopEntry) {
  const std::string appDir = dir_.file("opt/Mailbox.AppDir");
  std::filesystem::create_directories(appDir);
  testing::WriteFile(appDir + "/org.example.Mailbox.desktop", testing::DesktopEntry("Application"));
  const Fields on = {{"SIGNPOST_TELEMETRY", "1"}};
  auto run = startRun(writeStore(
      Signpost(kEndSeconds - 600, "event", 1, "Tap", "process", "com.orvel.touch", "Input", 300,
               "Mailbox", on, appDir + "/Mailbox") +
      Signpost(kEndSeconds - 500, "event", 2, "Tap", "process", "com.orvel.touch", "Input", 301,
               "netmond", on)));
  ASSERT_EQ(run->wait(60s), 0) << run->err();
  const std::vector<DovetelEvent> sent = events();
  ASSERT_GE(sent.size(), 4u);
  const Value* first = sent[0].payload.find("StartProcessName");
  const Value* second = sent[2].payload.find("StartProcessName");
  ASSERT_TRUE(first && second);
  EXPECT_EQ(*first, Value("org.example.Mailbox"));
  EXPECT_EQ(*second, Value("netmond"));
}

TEST_F(LumvaneRunTest, EndsWithoutProcessingWhenNotTaskedOrTheStoreIsMissing) {
  const std::string store = writeStore(SmallStore());
  setTaskedOn(false);
  auto untasked = startRun(store);
  EXPECT_EQ(untasked->wait(30s), 1) << untasked->err();
  EXPECT_FALSE(PathExists(dir_.file("dovetel/events.ndjson")));
  EXPECT_FALSE(PathExists(kGuardFile));
  EXPECT_NE(untasked->err().find("not tasked"), std::string::npos) << untasked->err();
  // Nothing was reported, so the throttle never came into being.
  EXPECT_EQ(untasked->err().find("clock ticks per quantum"), std::string::npos) << untasked->err();

  setTaskedOn(true);
  const std::string missing = dir_.file("no-such-store");
  auto unreadable = startRun(missing);
  EXPECT_EQ(unreadable->wait(30s), 1) << unreadable->err();
  EXPECT_NE(unreadable->err().find("lumvane: the signpost store could not be read"),
            std::string::npos) << unreadable->err();
  EXPECT_NE(unreadable->err().find(missing), std::string::npos) << unreadable->err();
  EXPECT_FALSE(PathExists(kGuardFile));
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

TEST_F(LumvaneRunTest, DeferralDuringProcessingEndsTheRunInterrupted) {
  // Two throttled sends per tap at 80 a second: longer than the second poll
  // can be late (its period plus its leeway, 20 s).
  constexpr size_t kTaps = 2000;
  std::time_t end = 1714557600;  // kEnd
  auto run = startRun(writeStore(TapStore(kTaps, end)));
  ASSERT_TRUE(waitForEvents(4)) << run->err();
  testing::WriteFile(dir_.file("state/defer"), "");
  ASSERT_EQ(run->wait(40s), 0) << run->err();
  EXPECT_FALSE(PathExists(kGuardFile));
  EXPECT_NE(run->err().find("Concluding processing due to deferral request"), std::string::npos)
      << run->err();
  EXPECT_NE(run->err().find("(Interrupted by deferral)"), std::string::npos) << run->err();

  const auto sent = events();
  ASSERT_FALSE(sent.empty());
  size_t objectSends = 0;
  for (const DovetelEvent& event : sent) {
    objectSends += event.name == "com.orvel.performance.signpost" ||
                   event.name == "sp__com.orvel.touch__Input__Tap";
  }
  EXPECT_GE(objectSends, 4u);
  EXPECT_LT(objectSends, 2 * kTaps);
  EXPECT_EQ(sent.back().name, "com.orvel.performance.signpost_reporting_stats");
  const Value* interrupted = sent.back().payload.find("WasInterrupted");
  ASSERT_TRUE(interrupted);
  EXPECT_EQ(*interrupted, Value(Number::fromBool(true)));
}

// SIGINT ends the daemon at once with status 0 and leaves the guard file of
// the run it cut short; the next run clears it instead of processing.
TEST_F(LumvaneRunTest, InterruptEndsTheDaemonAndLeavesTheGuardFileForTheNextRunToClear) {
  const std::string store = writeStore(TapStore(2000, std::time(nullptr)));
  std::vector<std::string> env = environment();
  env.push_back("LUMVANE_SIGNPOST_STORE=" + store);
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

// "-" reads the store from standard input; a FIFO or a device named as the
// store is refused at once, by name, instead of blocking or reading forever.
TEST_F(LumvaneRunTest, ReadsTheStoreFromStandardInputAndRefusesSpecialFiles) {
  const std::string store = dir_.file("one.ndjson");
  testing::WriteFile(store, Signpost(kEndSeconds - 3600, "event", 1, "Load", "process", "com.test",
                                    "ui", 100, "tester", {{"SIGNPOST_TELEMETRY", "1"}}));
  auto piped = start({"run", "--store", "-", "--dovetel-dir", dir_.file("dovetel"), "--now", kEnd},
                     store);
  ASSERT_EQ(piped->wait(30s), 0) << piped->err();
  const std::vector<DovetelEvent> sent = events();
  ASSERT_GE(sent.size(), 3u);
  EXPECT_EQ(sent[0].name, "com.orvel.performance.signpost");
  EXPECT_EQ(sent[1].name, "sp__com.test__ui__Load");
  EXPECT_EQ(sent.back().name, "com.orvel.performance.signpost_reporting_stats");
  const Value* processed = sent.back().payload.find("LogObjectsProcessed");
  ASSERT_TRUE(processed);
  EXPECT_EQ(*processed, Value(Number::fromUInt64(1)));

  const std::string fifo = dir_.file("fifo.ndjson");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {fifo, std::string("/dev/zero")}) {
    auto refused = startRun(path);
    EXPECT_EQ(refused->wait(15s), 1) << refused->err();
    EXPECT_NE(refused->err().find("lumvane: the signpost store could not be read: cannot read " +
                                  path + ": not a regular file"),
              std::string::npos)
        << refused->err();
    EXPECT_FALSE(PathExists(kGuardFile));
  }
}

// An endless line on standard input: the deferral poll's stop ends the read
// inside the line, and the run reports as interrupted.
TEST_F(LumvaneRunTest, DeferralEndsARunReadingAnEndlessLine) {
  auto run = start({"run", "--store", "-", "--dovetel-dir", dir_.file("dovetel"), "--now", kEnd},
                   "/dev/zero");
  ASSERT_TRUE(run->waitForError("Deferral not requested, continuing.", 10s)) << run->err();
  testing::WriteFile(dir_.file("state/defer"), "");
  // The next poll comes within the period plus the leeway, 20 s; the stop it
  // makes ends the read inside the line at once.
  ASSERT_EQ(run->wait(30s), 0) << run->err();
  EXPECT_NE(run->err().find("Concluding processing due to deferral request"), std::string::npos)
      << run->err();
  const std::vector<DovetelEvent> sent =
      ReadDovetelEvents(dir_.file("dovetel/events.ndjson")).events;
  ASSERT_FALSE(sent.empty());
  EXPECT_EQ(sent.back().name, "com.orvel.performance.signpost_reporting_stats");
  const Value* interrupted = sent.back().payload.find("WasInterrupted");
  ASSERT_TRUE(interrupted);
  EXPECT_EQ(*interrupted, Value(Number::fromBool(true)));
  EXPECT_FALSE(PathExists(kGuardFile));
}

}  // namespace
}  // namespace lumvane
