#include "lumvane/platform/DovetelEventSink.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <functional>
#include <limits>
#include <optional>

#include "lumvane/platform/DovetelEventReader.h"
#include "lumvane/platform/UniqueFd.h"
#include "tests/support/PrivateVarTmp.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using testing::ReadFile;
using testing::ScopedEnv;
using testing::ScopedLogCapture;
using testing::TempDir;
using testing::WriteFile;

TEST(DovetelEventSinkTest, AppendsLinesThatReadBackWithOrderKindsAndEscaping) {
  TempDir dir;
  const std::string eventsDir = dir.file("not/yet/there"), path = eventsDir + "/events.ndjson";
  ScopedEnv env("LUMVANE_DOVETEL_DIR", eventsDir.c_str());
  const std::string tricky = "q\"b\\c\x01n\nt\t";
  const std::string text = "Gr\xC3\xBC\xC3\x9F" "e \xE2\x98\x83 \xF0\x9F\x98\x80";
  const Number big = Number::fromUInt64(std::numeric_limits<uint64_t>::max());
  auto sink = NewFileDovetelEventSink();
  sink->sendEvent("sp__a\"b", Dictionary{{"Z", tricky}, {"A", text}, {"Bad", "\xFF\xC3(\xE2\x82"},
                                         {"Neg", Number::fromInt64(-5)}, {"Big", big},
                                         {"F32", Number::fromFloat(0.1f)}, {"Whole", Number::fromFloat(3.0f)},
                                         {"F64", Number::fromDouble(1.5)}, {"NaN", Number::fromFloat(NAN)},
                                         {"On", Number::fromBool(true)}});
  sink->sendEvent("second", Dictionary{{"k", "v"}});
  const std::string raw = ReadFile(path);
  EXPECT_NE(raw.find(R"("Z": "q\"b\\c\u0001n\nt\t")"), std::string::npos) << raw;
  EXPECT_NE(raw.find(R"("F32": 0.1, "Whole": 3.0, "F64": 1.5, "NaN": null, "On": true)"), std::string::npos)
      << raw;

  DovetelEventFile file = ReadDovetelEvents(path);
  ASSERT_FALSE(file.error);
  EXPECT_EQ(file.skippedLines, 0u);
  ASSERT_EQ(file.events.size(), 2u);
  EXPECT_EQ(file.events[0].name, "sp__a\"b");
  EXPECT_EQ(file.events[1].name, "second");
  // Invalid UTF-8 reads back as U+FFFD; the null is left out.
  EXPECT_EQ(file.events[0].payload,
            (Dictionary{{"Z", tricky}, {"A", text}, {"Bad", "\xEF\xBF\xBD\xEF\xBF\xBD(\xEF\xBF\xBD"},
                        {"Neg", Number::fromInt64(-5)}, {"Big", big}, {"F32", Number::fromDouble(0.1)},
                        {"Whole", Number::fromDouble(3.0)}, {"F64", Number::fromDouble(1.5)},
                        {"On", Number::fromBool(true)}}));

  // Skipped and counted: two glued events, trailing bytes, a non-object and a torn last line.
  WriteFile(path, raw + "{\"name\": \"a\", \"payload\": {}}{\"name\": \"b\", \"payload\": {}}\n" +
                      "{\"name\": \"c\", \"payload\": {}} x\n[\"d\"]\n{\"name\": \"torn\", \"payl");
  file = ReadDovetelEvents(path);
  EXPECT_EQ(file.events.size(), 2u);
  EXPECT_EQ(file.skippedLines, 4u);
  EXPECT_TRUE(ReadDovetelEvents(dir.file("none.ndjson")).error);
}

// An event file of whole lines and a partial one: before its first append, a
// new sink cuts exactly the partial line away and says how much it removed.
TEST(DovetelEventSinkTest, FirstAppendCutsAPartialLastLine) {
  const std::string whole = "{\"name\": \"old\", \"payload\": {}, \"sent\": 1}\n";
  const std::string longTorn = "{\"name\": \"torn\", \"payload\": {\"k\": \"" +
                               std::string(5000, 'x');  // crosses the 4 KiB read blocks
  // `before` absent: no file yet; `removed` 0: nothing cut, nothing logged.
  struct Case {
    const char* what;
    std::optional<std::string> before;
    std::string kept;
    long long removed;
  } cases[] = {
      {"no file", std::nullopt, "", 0},
      {"empty file", "", "", 0},
      {"whole lines", whole + whole, whole + whole, 0},
      {"torn after a whole line", whole + "{\"name\": \"torn\", \"payl", whole, 22},
      {"only a torn line", "{\"na", "", 4},
      {"whole object without its line feed", whole + whole.substr(0, whole.size() - 1), whole,
       static_cast<long long>(whole.size() - 1)},
      {"torn line longer than a read block", whole + longTorn, whole, 5035},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TempDir dir;
    const std::string path = dir.file("events.ndjson");
    if (c.before) WriteFile(path, *c.before);
    ScopedEnv env("LUMVANE_DOVETEL_DIR", dir.path().c_str());
    ScopedLogCapture capture;
    NewFileDovetelEventSink()->sendEvent("next", Dictionary{{"k", "v"}});

    const std::string after = ReadFile(path);
    ASSERT_EQ(after.compare(0, c.kept.size(), c.kept), 0) << after;
    const std::string added = after.substr(c.kept.size());
    EXPECT_EQ(added.rfind("{\"name\": \"next\", \"payload\": {\"k\": \"v\"}, \"sent\": ", 0), 0u) << added;
    EXPECT_EQ(added.find('\n'), added.size() - 1) << added;
    std::vector<std::string> expectedLog;
    if (c.removed > 0) {
      expectedLog.push_back("Removed a partial last line of " + std::to_string(c.removed) + " bytes from " +
                            path);
    }
    EXPECT_EQ(capture.log().messages(), expectedLog);
  }
}

// A link or a FIFO at the event file's path, or a file in place of its directory, is refused at once
// with an error naming it; nothing reaches the planted file, and a later send to a sound path succeeds.
TEST(DovetelEventSinkTest, RefusesALinkOrAFifoInPlaceOfTheEventFile) {
  TempDir dir;
  const std::string path = dir.file("events.ndjson"), elsewhere = dir.file("elsewhere");
  WriteFile(elsewhere, "");
  auto sink = NewFileDovetelEventSink();
  struct Case {
    const char* what;
    std::string dovetelDir;
    std::function<void()> plant;
    std::string error;
  } cases[] = {
      {"symbolic link", dir.path(), [&] { ASSERT_EQ(::symlink(elsewhere.c_str(), path.c_str()), 0); },
       "cannot open " + path + ": it is a symbolic link"},
      {"FIFO", dir.path(), [&] { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); },
       "cannot append to " + path + ": not a regular file"},
      {"file as directory", elsewhere + "/sub", [] {},
       "cannot use " + elsewhere + " as a directory: Not a directory"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ::unlink(path.c_str());
    c.plant();
    // A reader on the FIFO, so that a sink that does open it for writing neither blocks nor fails there.
    UniqueFd reader(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW));
    ScopedEnv env("LUMVANE_DOVETEL_DIR", c.dovetelDir.c_str());
    ScopedLogCapture capture;
    sink->sendEvent("refused", Dictionary{});
    EXPECT_EQ(capture.log().messages(),
              std::vector<std::string>{"Could not send telemetry event refused: " + c.error});
    for (const auto& record : capture.log().records()) EXPECT_EQ(record.level, LogLevel::Error);
    EXPECT_EQ(ReadFile(elsewhere), "");
    char byte;
    if (reader) {
      EXPECT_LT(::read(reader.get(), &byte, 1), 1);
    }
  }
  ::unlink(path.c_str());
  ScopedEnv env("LUMVANE_DOVETEL_DIR", dir.path().c_str());
  sink->sendEvent("kept", Dictionary{});
  DovetelEventFile file = ReadDovetelEvents(path);
  ASSERT_EQ(file.events.size(), 1u);
  EXPECT_EQ(file.events[0].name, "kept");
}

TEST(DovetelEventSinkTest, FullDiskLogsTheSystemsReasonAndLeavesWholeLines) {
  TempDir dir;
  const std::string path = dir.file("events.ndjson");
  std::string whyNot;
  // One 4 KiB page: the append that crosses its end is written short.
  std::optional<std::string> answer = testing::RunInPrivateTmpfs(dir.path(), "size=4096", [&] {
    ScopedEnv env("LUMVANE_DOVETEL_DIR", dir.path().c_str());
    ScopedLogCapture capture;
    auto sink = NewFileDovetelEventSink();
    int sent = 0;
    while (sent < 100 && capture.log().records().empty()) {
      sink->sendEvent("e" + std::to_string(sent++), Dictionary{{"k", std::string(150, 'v')}});
    }
    std::vector<std::string> log = capture.log().messages();
    DovetelEventFile file = ReadDovetelEvents(path);
    const std::string raw = ReadFile(path);
    return std::to_string(sent - 1) + " " + std::to_string(file.events.size()) + " " +
           std::to_string(file.skippedLines) + (raw.empty() || raw.back() == '\n' ? " whole\n" : " torn\n") +
           (log.empty() ? "" : log[0]);
  }, &whyNot);
  if (!answer) GTEST_SKIP() << "no private mount namespace: " << whyNot;
  // Lines of 213 bytes (e0 to e9) and 214 bytes (from e10, with a 16-digit
  // "sent"): 19 fit in 4096 bytes, e19 is refused and leaves nothing.
  EXPECT_EQ(*answer, "19 19 0 whole\nCould not send telemetry event e19: cannot write to " + path +
                         ": No space left on device");
}

}  // namespace
}  // namespace lumvane
