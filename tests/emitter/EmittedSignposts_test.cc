// From a program's signpost to the telemetry sink: signposts marked with the library and with
// lumvane-signpost reach a private journald, and `lumvane run --store` over its journal reports them.
#include <gtest/gtest.h>
#include <lumvane/signpost.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <thread>

#include "lumvane/platform/DovetelEventReader.h"
#include "tests/emitter/JournalEntries.h"
#include "tests/support/TestSupport.h"

namespace lumvane::testing {
namespace {

std::string Text(const Dictionary& payload, const char* key) {
  const Value* value = payload.find(key);
  return value ? value->description() : "<absent>";
}

TEST(EmittedSignposts, AreReportedFromTheJournal) {
  // There the whitelist is off, and the private string would be reported.
  if (PathExists("/etc/lumvane/internal-diagnostics"))
    GTEST_SKIP() << "/etc/lumvane/internal-diagnostics exists";
  PrivateJournal::Options options;
  options.privateVarTmp = true;  // the run's guard file stays in the namespace
  START_JOURNAL(journal, options);
  TempDir dir;
  std::filesystem::create_directories(dir.file("dovetel/configurations"));
  WriteFile(dir.file("dovetel/configurations/com.orvel.performance.lumvane_tasking.json"),
            "{\"TaskedOn\": 1}\n");

  // The library: an interval with the begin's and the end's arguments, a tap with a whitelisted
  // zone and one with a private string.
  static const lumvane_signpost launch = {"com.orvel.launch", "App", "ColdLaunch",
                                          LUMVANE_SIGNPOST_SCOPE_PROCESS, LUMVANE_SIGNPOST_TELEMETRY};
  static const lumvane_signpost tap = {"com.orvel.touch", "Input", "Tap", LUMVANE_SIGNPOST_SCOPE_PROCESS,
                                       LUMVANE_SIGNPOST_TELEMETRY};
  {
    lumvane_signpost_args begin{}, end{};
    begin.strings[0] = {"Phase", "Root"};
    begin.numbers[0] = {"Frames", LUMVANE_SIGNPOST_NUMBER_UINT64, {.u = 12}};
    end.numbers[1] = {"Code", LUMVANE_SIGNPOST_NUMBER_INT64, {.i = -3}};
    ScopedSignpost interval(launch, &begin);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(interval.end(&end), 0);
  }
  for (const char* zone : {"Ext", "secret-user-token"}) {
    lumvane_signpost_args args{};
    args.strings[0] = {"Zone", zone};
    ASSERT_EQ(lumvane_signpost_event(&tap, 0, &args), 0);
  }
  // The command: a tap from another process, left unreaped until journald has read its name
  // (journald names a sender from /proc, which a reaped process has left).
  pid_t command = fork();
  ASSERT_GE(command, 0);
  if (command == 0) {
    execl(LUMVANE_BINARY_DIR "/signpost-command/lumvane-signpost", "lumvane-signpost", "event", "--subsystem",
          "com.orvel.touch", "--category", "Input", "--name", "Tap", "--telemetry", "--string1", "Zone=Root",
          static_cast<char*>(nullptr));
    _exit(127);
  }
  siginfo_t exited{};
  ASSERT_EQ(waitid(P_PID, command, &exited, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(exited.si_status, 0);
  ASSERT_EQ(journal.sync(), "");
  waitpid(command, nullptr, 0);

  ChildProcess run({LUMVANE_BINARY_DIR "/lumvane", "run", "--store", PrivateJournal::kDirectory,
                    "--dovetel-dir", dir.file("dovetel")},
                   {"LUMVANE_STATE_DIR=" + dir.path(), "LUMVANE_LOG_TARGET=stderr"}, dir.file("run"));
  ASSERT_EQ(run.wait(std::chrono::seconds(60)), 0) << run.err();

  // Every reported object twice, named after the process that marked it (cut to 15 characters).
  std::multiset<std::string> reported;
  for (const auto& event : ReadDovetelEvents(dir.file("dovetel/events.ndjson")).events)
    if (event.name.rfind("sp__", 0) == 0 || event.name == "com.orvel.performance.signpost")
      reported.insert(event.name + " " + Text(event.payload, "String1Value") + " " +
                      Text(event.payload, "IntervalType") + " " + Text(event.payload, "StartProcessName"));
  EXPECT_EQ(reported, (std::multiset<std::string>{
                          "com.orvel.performance.signpost Root Interval lumvane_emitter",
                          "sp__com.orvel.launch__App__ColdLaunch Root Interval lumvane_emitter",
                          "com.orvel.performance.signpost Ext Event lumvane_emitter",
                          "sp__com.orvel.touch__Input__Tap Ext Event lumvane_emitter",
                          "com.orvel.performance.signpost Root Event lumvane-signpos",
                          "sp__com.orvel.touch__Input__Tap Root Event lumvane-signpos"}));
  std::string events = ReadFile(dir.file("dovetel/events.ndjson"));
  EXPECT_NE(events.find("\"Number1Value\": 12, \"Number2Name\": \"Code\", \"Number2Value\": -3"),
            std::string::npos)
      << events;
  EXPECT_EQ(events.find("secret-user-token"), std::string::npos);
  EXPECT_NE(run.err().find("Done processing 2 reported and 1 unreported events, 1 reported and "
                           "0 unreported intervals"),
            std::string::npos)
      << run.err();
}

}  // namespace
}  // namespace lumvane::testing
