#include "lumvane/platform/DovetelEventSink.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "lumvane/platform/DovetelEventReader.h"
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
  const std::string eventsDir = dir.file("not/yet/there");
  ScopedEnv env("LUMVANE_DOVETEL_DIR", eventsDir.c_str());
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
  EXPECT_EQ(file.events[0].name, "sp__a\"b");
  EXPECT_EQ(file.events[1].name, "second");
  // Read back in order; invalid UTF-8 became U+FFFD, the null was left out.
  EXPECT_EQ(file.events[0].payload,
            (Dictionary{{"Z", tricky}, {"A", text},
                        {"Bad", "\xEF\xBF\xBD\xEF\xBF\xBD(\xEF\xBF\xBD"},
                        {"Neg", Number::fromInt64(-5)},
                        {"Big", Number::fromUInt64(std::numeric_limits<uint64_t>::max())},
                        {"F32", Number::fromDouble(0.1)}, {"Whole", Number::fromDouble(3.0)},
                        {"F64", Number::fromDouble(1.5)}, {"On", Number::fromBool(true)}}));

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
    ScopedEnv env("LUMVANE_DOVETEL_DIR", dir.file("plain/sub").c_str());
    sink->sendEvent("lost", Dictionary{});
  }
  auto records = capture.log().records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].level, LogLevel::Error);
  EXPECT_NE(records[0].message.find(dir.file("plain")), std::string::npos);
  EXPECT_NE(records[0].message.find("Not a directory"), std::string::npos) << records[0].message;

  ScopedEnv env("LUMVANE_DOVETEL_DIR", dir.file("good").c_str());
  sink->sendEvent("kept", Dictionary{});
  DovetelEventFile file = ReadDovetelEvents(dir.file("good/events.ndjson"));
  ASSERT_EQ(file.events.size(), 1u);
  EXPECT_EQ(file.events[0].name, "kept");
  EXPECT_TRUE(ReadDovetelEvents(dir.file("none.ndjson")).error);
}

}  // namespace
}  // namespace lumvane
