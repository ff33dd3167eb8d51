#include "lumvane/platform/DovetelEventSink.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>

#include "lumvane/platform/DovetelEventReader.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using testing::ReadFile;
using testing::ScopedLogCapture;
using testing::TempDir;
using testing::WriteFile;

class ScopedDovetelDir {
 public:
  explicit ScopedDovetelDir(const std::string& dir) { setenv("LUMVANE_DOVETEL_DIR", dir.c_str(), 1); }
  ~ScopedDovetelDir() { unsetenv("LUMVANE_DOVETEL_DIR"); }
};

const Number& NumberAt(const Dictionary& d, const char* key) {
  static const Number kMissing = Number::fromBool(false);
  const Value* v = d.find(key);
  return v && v->asNumber() ? *v->asNumber() : kMissing;
}

TEST(DovetelEventSinkTest, AppendsLinesThatReadBackWithOrderKindsAndEscaping) {
  TempDir dir;
  const std::string eventsDir = dir.file("not/yet/there");
  ScopedDovetelDir env(eventsDir);
  auto sink = NewFileDovetelEventSink();

  const std::string tricky = "q\"b\\c\x01n\nt\t";
  const std::string text = "Gr\xC3\xBC\xC3\x9F" "e \xE2\x98\x83 \xF0\x9F\x98\x80";
  Dictionary payload{{"Z", tricky},
                     {"A", text},
                     {"Bad", "\xFF\xC3(\xE2\x82"},
                     {"Neg", Number::fromInt64(-5)},
                     {"Big", Number::fromUInt64(std::numeric_limits<uint64_t>::max())},
                     {"F32", Number::fromFloat(0.1f)},
                     {"Whole", Number::fromFloat(3.0f)},
                     {"F64", Number::fromDouble(1.5)},
                     {"NaN", Number::fromFloat(std::nanf(""))},
                     {"On", Number::fromBool(true)}};
  sink->sendEvent("sp__a\"b", payload);
  sink->sendEvent("second", Dictionary{{"k", "v"}});

  const std::string raw = ReadFile(eventsDir + "/events.ndjson");
  EXPECT_NE(raw.find(R"("Z": "q\"b\\c\u0001n\nt\t")"), std::string::npos) << raw;
  EXPECT_NE(raw.find(R"("F32": 0.1, "Whole": 3.0, "F64": 1.5, "NaN": null, "On": true)"),
            std::string::npos) << raw;

  DovetelEventFile file = ReadDovetelEvents(eventsDir + "/events.ndjson");
  ASSERT_FALSE(file.error);
  EXPECT_EQ(file.skippedLines, 0u);
  ASSERT_EQ(file.events.size(), 2u);
  const Dictionary& got = file.events[0].payload;
  EXPECT_EQ(file.events[0].name, "sp__a\"b");
  EXPECT_EQ(file.events[1].name, "second");
  EXPECT_EQ(got.keys(), (std::vector<std::string>{"Z", "A", "Bad", "Neg", "Big", "F32", "Whole",
                                                  "F64", "On"}));
  EXPECT_EQ(*got.find("Z")->asString(), tricky);
  EXPECT_EQ(*got.find("A")->asString(), text);
  EXPECT_EQ(*got.find("Bad")->asString(), "\xEF\xBF\xBD\xEF\xBF\xBD(\xEF\xBF\xBD");
  EXPECT_EQ(NumberAt(got, "Neg"), Number::fromInt64(-5));
  EXPECT_EQ(NumberAt(got, "Big"), Number::fromUInt64(std::numeric_limits<uint64_t>::max()));
  EXPECT_EQ(NumberAt(got, "F32"), Number::fromDouble(0.1));
  EXPECT_EQ(NumberAt(got, "Whole"), Number::fromDouble(3.0));
  EXPECT_EQ(NumberAt(got, "On"), Number::fromBool(true));

  // A torn last line (a crash mid-write) is skipped and counted.
  WriteFile(eventsDir + "/events.ndjson", raw + "{\"name\": \"torn\", \"payl");
  file = ReadDovetelEvents(eventsDir + "/events.ndjson");
  EXPECT_EQ(file.events.size(), 2u);
  EXPECT_EQ(file.skippedLines, 1u);
}

TEST(DovetelEventSinkTest, FailedSendIsLoggedAndLaterSendsTryAgain) {
  TempDir dir;
  WriteFile(dir.file("plain"), "");
  auto sink = NewFileDovetelEventSink();
  ScopedLogCapture capture;
  {
    ScopedDovetelDir env(dir.file("plain/sub"));
    sink->sendEvent("lost", Dictionary{});
  }
  auto records = capture.log().records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].level, LogLevel::Error);
  EXPECT_NE(records[0].message.find(dir.file("plain")), std::string::npos);
  EXPECT_NE(records[0].message.find("Not a directory"), std::string::npos) << records[0].message;

  ScopedDovetelDir env(dir.file("good"));
  sink->sendEvent("kept", Dictionary{});
  DovetelEventFile file = ReadDovetelEvents(dir.file("good/events.ndjson"));
  ASSERT_EQ(file.events.size(), 1u);
  EXPECT_EQ(file.events[0].name, "kept");
  EXPECT_TRUE(ReadDovetelEvents(dir.file("none.ndjson")).error);
}

TEST(DovetelEventSinkTest, SendGoesToTheExchangedSink) {
  auto recording = std::make_shared<RecordingDovetelSink>();
  auto previous = ExchangeDovetelEventSink(recording);
  DovetelSendEvent("one", Dictionary{{"k", Number::fromUInt64(1)}});
  DovetelSendEvent("two", Dictionary{});
  EXPECT_EQ(ExchangeDovetelEventSink(previous), recording);
  auto events = recording->events();
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].name, "one");
  EXPECT_EQ(events[0].payload, (Dictionary{{"k", Number::fromUInt64(1)}}));
  EXPECT_EQ(events[1].name, "two");
}

}  // namespace
}  // namespace lumvane
