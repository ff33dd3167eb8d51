// lumvane-signpost: its command line, then the program itself against a
// private journald.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <vector>

#include "SignpostCommandLine.h"
#include "tests/emitter/JournalEntries.h"
#include "tests/support/TestSupport.h"

namespace lumvane::testing {
namespace {

SignpostCommandLine ParseLine(std::vector<std::string> words) {
  std::vector<char*> argv;
  static char program[] = "lumvane-signpost";
  argv.push_back(program);
  for (auto& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  return SignpostCommandLine::Parse(int(argv.size()) - 1, argv.data());
}

TEST(SignpostCommandLine, RefusesWhatCouldNotPairOrRead) {
  const std::vector<std::string> base = {"--subsystem", "s", "--category", "c"};
  struct {
    std::vector<std::string> words;
    const char* errorPart;  // "" when the line is good
  } cases[] = {
      {{"begin", "--scope", "system"}, ""}, {{"end", "--pid", "1", "--id", "18446744073709551615"}, ""},
      {{"event"}, ""}, {{"begin"}, "without --pid"}, {{"begin", "--scope", "process"}, "without --pid"},
      {{"event", "--scope", "thread"}, "thread"}, {{"end", "--scope", "system"}, "--id"},
      {{"end", "--scope", "system", "--id", "0"}, "non-zero"},
      {{"end", "--scope", "system", "--id", "18446744073709551616"}, "--id"},
      {{"event", "--pid", "0"}, "--pid"}, {{"event", "--attribute", "k=1", "--attribute", "k=2"}, "twice"},
      {{"event", "--attribute", "=v"}, "KEY=VALUE"}, {{"event", "--number1", "n=0x10"}, "NAME=NUMBER"},
      {{"event", "extra"}, "unexpected"}, {{"finish"}, "unknown command"}, {{"event", "--bogus"}, "--bogus"},
  };
  for (const auto& c : cases) {
    auto words = c.words;
    words.insert(words.begin() + 1, base.begin(), base.end());
    auto line = ParseLine(words);
    SCOPED_TRACE(::testing::PrintToString(words) + ": " + line.error());
    EXPECT_EQ(line.ok(), *c.errorPart == '\0');
    EXPECT_NE(line.error().find(c.errorPart), std::string::npos);
  }
  EXPECT_NE(ParseLine({"event"}).error().find("--subsystem"), std::string::npos);
  EXPECT_TRUE(ParseLine({"--help"}).helpRequested());
}

TEST(SignpostCommandLine, NumbersTakeTheKindTheirTextReadsAs) {
  const auto kInt = LUMVANE_SIGNPOST_NUMBER_INT64, kUint = LUMVANE_SIGNPOST_NUMBER_UINT64,
             kDouble = LUMVANE_SIGNPOST_NUMBER_DOUBLE, kNone = LUMVANE_SIGNPOST_NUMBER_UNUSED;
  struct {
    const char* text;
    lumvane_signpost_number_kind kind;
  } cases[] = {
      {"-9223372036854775808", kInt}, {"-9223372036854775809", kDouble}, {"18446744073709551615", kUint},
      {"18446744073709551616", kDouble}, {"007", kUint}, {"-1.5e3", kDouble}, {"0.25", kDouble},
      {"", kNone}, {"-", kNone}, {"+1", kNone}, {"1e", kNone}, {"1.", kNone}, {".5", kNone},
      {"01.5", kNone}, {"inf", kNone}, {"nan", kNone}, {"1e999", kNone}, {"0x10", kNone}, {"1,5", kNone},
  };
  for (const auto& c : cases) {
    auto n = ParseSignpostNumber(c.text);
    EXPECT_EQ(n ? n->kind : kNone, c.kind) << c.text;
  }
  EXPECT_EQ(ParseSignpostNumber("-9223372036854775808")->value.i, INT64_MIN);
  EXPECT_EQ(ParseSignpostNumber("-1.5e3")->value.d, -1500.0);
}

TEST(SignpostCommand, ScriptsPairInSystemScopeOrOnBehalfOfAProcess) {
  START_JOURNAL(journal, PrivateJournal::Options{});
  TempDir dir;
  auto run = [&dir](std::vector<std::string> args) {
    args.insert(args.begin(), LUMVANE_BINARY_DIR "/signpost-command/lumvane-signpost");
    ChildProcess child(args, {}, dir.file(args[1]));
    auto status = child.wait(std::chrono::seconds(10));
    return std::make_pair(status.value_or(-1), child.out() + child.err());
  };
  const std::vector<std::string> copy = {"--subsystem", "org.example.sh", "--category", "backup",
                                         "--name",      "copy",           "--scope",    "system"};
  auto with = [&copy](std::vector<std::string> words) {
    words.insert(words.begin() + 1, copy.begin(), copy.end());
    return words;
  };
  auto [beginStatus, printed] = run(with({"begin", "--telemetry", "--string1", "Host=nas",
                                          "--number1", "Files=12", "--attribute", "mode=full"}));
  ASSERT_EQ(beginStatus, 0) << printed;
  std::string id = printed.substr(0, printed.find('\n'));
  EXPECT_EQ(run(with({"end", "--id", id, "--number2", "Ratio=0.5"})).first, 0);

  // On behalf of a process that has gone by the time journald reads the
  // entry, so that only the command could have named it.
  pid_t sleeper = fork();
  ASSERT_GE(sleeper, 0);
  if (sleeper == 0) {
    execl("/bin/sleep", "sleep", "30", static_cast<char*>(nullptr));
    _exit(127);
  }
  std::string pid = std::to_string(sleeper);
  for (int tries = 0; tries < 400 && ReadFile("/proc/" + pid + "/comm") != "sleep\n"; ++tries)
    usleep(5000);
  journal.freeze(true);
  EXPECT_EQ(run({"event", "--subsystem", "s", "--category", "c", "--pid", pid}).first, 0);
  kill(sleeper, SIGKILL);
  waitpid(sleeper, nullptr, 0);
  journal.freeze(false);
  EXPECT_EQ(run({"event", "--subsystem", "s"}).first, 2);

  auto entries = Signposts(journal);
  ASSERT_EQ(entries.size(), 3u);
  struct {
    size_t entry;
    const char* field;
    std::string value;
  } expected[] = {
      {0, "SIGNPOST_TYPE", "begin"},         {0, "SIGNPOST_ID", id},
      {0, "SIGNPOST_SCOPE", "system"},       {0, "SIGNPOST_NAME", "copy"},
      {0, "SIGNPOST_TELEMETRY", "1"},        {0, "SIGNPOST_STRING1_VALUE", "nas"},
      {0, "SIGNPOST_NUMBER1_VALUE", "12"},   {0, "SIGNPOST_ATTRIBUTE", "mode=full"},
      {1, "SIGNPOST_TYPE", "end"},           {1, "SIGNPOST_ID", id},
      {1, "SIGNPOST_NUMBER2_NAME", "Ratio"}, {1, "SIGNPOST_NUMBER2_VALUE", "0.5"},
      {2, "SIGNPOST_TYPE", "event"},         {2, "OBJECT_PID", pid},
      {2, "OBJECT_COMM", "sleep"},           {2, "OBJECT_EXE", std::filesystem::canonical("/bin/sleep")},
  };
  for (const auto& e : expected) EXPECT_EQ(Field(entries[e.entry], e.field), e.value) << e.field;

  // Without a journal the command says so and fails.
  journal.stop(true);
  auto [status, text] = run({"event", "--subsystem", "s", "--category", "c"});
  EXPECT_EQ(status, 1);
  EXPECT_NE(text.find("no journal"), std::string::npos) << text;
}

// The boot clock and the monotonic clock differ only across a suspend, so the command runs once in a time
// namespace whose boot clock is a million seconds ahead; the value written must carry that lead.
TEST(SignpostCommand, StampsEntriesWithTheBootClock) {
  START_JOURNAL(journal, PrivateJournal::Options{});
  TempDir dir;
  const std::vector<std::string> event = {LUMVANE_BINARY_DIR "/signpost-command/lumvane-signpost", "event",
                                          "--subsystem", "s", "--category", "c"};
  std::vector<std::string> ahead = {"/usr/bin/unshare", "--user", "--map-root-user", "--time",
                                    "--boottime", "1000000", "--fork"};
  ahead.insert(ahead.end(), event.begin(), event.end());
  ASSERT_EQ(ChildProcess(event, {}, dir.file("now")).wait(std::chrono::seconds(10)), 0);
  ChildProcess shifted(ahead, {}, dir.file("ahead"));
  const auto status = shifted.wait(std::chrono::seconds(10));
  if (status != 0 && shifted.err().find("unshare") != std::string::npos)
    GTEST_SKIP() << "no time namespace here: " << shifted.err();
  ASSERT_EQ(status, 0) << shifted.err();
  auto entries = Signposts(journal);
  ASSERT_EQ(entries.size(), 2u);
  const double lead = (std::stod(Field(entries[1], "SIGNPOST_BOOTTIME_NSEC")) -
                       std::stod(Field(entries[0], "SIGNPOST_BOOTTIME_NSEC"))) / 1e9;
  EXPECT_GE(lead, 1000000.0);
  EXPECT_LT(lead, 1000010.0);
}

}  // namespace
}  // namespace lumvane::testing
