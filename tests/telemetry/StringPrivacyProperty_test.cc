// The privacy promise as a property: many random signpost objects go through
// the object filter, the payload builders and the reporting path; no string
// value outside its platform's whitelist may reach a sent event, and no object
// whose named values are all listed may be refused by the whitelist. What is
// allowed is worked out here from the list files and the table below, never by
// asking the whitelist code. LUMVANE_PROPERTY_SEED picks another seed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <random>
#include <set>

#include "lumvane/filter/LumvaneObjectFilter.h"
#include "lumvane/platform/DovetelEventSink.h"
#include "lumvane/platform/WorkQueue.h"
#include "lumvane/signpost/SignpostAnimationInterval.h"
#include "lumvane/telemetry/ReportSignpostPayload.h"
#include "tests/support/TestSupport.h"
#include "tests/support/platform/FakeContinuousClock.h"
#include "tests/support/platform/RecordingDovetelSink.h"
#include "tests/support/platform/RecordingSleeper.h"

namespace lumvane {
namespace {

using Pool = std::vector<std::string>;

Pool ReadLists(const std::vector<const char*>& lists) {
  Pool entries;
  for (const char* list : lists) {
    std::ifstream in(std::string(LUMVANE_SOURCE_DIR) + "/lumvane/filter/data/" + list + ".txt");
    const std::size_t before = entries.size();
    for (std::string line; std::getline(in, line);) {
      if (!line.empty()) entries.push_back(line);
    }
    EXPECT_GT(entries.size(), before) << list;
  }
  return entries;
}

const std::vector<const char*> kArdenosLists = {
    "LVDesktopUIElementNames", "LVDesktopUIActionNames", "LVDesktopBundleIdentifiers",
    "LVFilesystemAndIndexScanTokens", "LVSharedStringValues"};
const std::vector<const char*> kBelvosLists = {
    "LVPhoneUILocationNames", "LVCameraEventValues", "LVShareActivityTypes",
    "LVPhoneExtensionBundleIdentifiers", "LVCalendarViewNames", "LVSizeNames",
    "LVMailAccountTypes", "LVGenerationSourceNames", "LVSharedStringValues"};
const std::pair<LVPlatform, std::vector<const char*>> kPlatforms[] = {
    {LVPlatformArdenos, kArdenosLists}, {LVPlatformBelvos, kBelvosLists},
    {LVPlatformCirros, {"LVSharedStringValues"}}, {LVPlatformDalvos, {"LVSharedStringValues"}},
    {LVPlatformElmos, {}}};

// The desktop performance-logging signpost, entries of the built-in name
// filters, and names no table knows.
const char* const kIdentities[][3] = {
    {"com.orvel.Brackenfold", "PerfLogging", "PerfLoggingOperation"},
    {"com.orvel.Lanternfield", "Startup", "Launch"},
    {"com.orvel.velmarsh.quillary", "signpost", "Tallowmark"},
    {"com.orvel.Pettimore.HighSeverity", "MurkwaterCondition", "HollowgateCondition"},
    {"com.example.mail", "Sync", "Fetch"},
    {"com.example.photos", "Import", "Scan"}};

// Random signpost objects for one platform whose own lists hold `own`.
class ObjectGenerator {
 public:
  ObjectGenerator(uint32_t seed, const Pool& own, const Pool& everyList)
      : rng_(seed), own_(own), every_(everyList), listed_(everyList.begin(), everyList.end()) {}

  // Values that must never leave the process: unknown to every list, or a
  // listed value changed by one character or its case.
  std::set<std::string> privateValues;

  std::shared_ptr<const SignpostObject> next() {
    SignpostObjectProperties p;
    const auto& id = kIdentities[pick(std::size(kIdentities))];
    p.subsystem = id[0], p.category = id[1], p.name = id[2];
    fill(&p.string1Name, &p.string1Value);
    fill(&p.string2Name, &p.string2Value);
    p.durationSeconds = std::uniform_real_distribution<float>(-1.0f, 5.0f)(rng_);
    p.telemetryEnabled = pick(10) != 0;
    auto side = [&] { return std::make_shared<const SignpostEvent>(p, "proc", std::nullopt); };
    if (pick(3) == 0) return side();
    if (pick(2) == 0) return std::make_shared<const SignpostInterval>(p, side(), side());
    return std::make_shared<const SignpostAnimationInterval>(p, side(), side(), Dictionary{}, 60.f);
  }

 private:
  size_t pick(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng_); }

  void fill(std::optional<std::string>* name, std::optional<std::string>* value) {
    if (pick(5) == 0) {  // no such argument, though maybe a stray value
      if (pick(2) == 0) *value = privateValue();
      return;
    }
    // Argument names carry no private data and vary so that no check leans on one.
    static const char* const kNames[] = {"Element", "Action", "Store", "Mode", "Kind"};
    *name = pick(4) == 0 ? "arg" + std::to_string(pick(1000)) : kNames[pick(std::size(kNames))];
    const size_t roll = pick(10);
    std::string changed = every_[pick(every_.size())];
    if (roll == 0) return;  // named, but without a value
    if (roll <= 3 && !own_.empty()) return void(*value = own_[pick(own_.size())]);
    if (roll == 4 || roll == 5) return void(*value = changed);  // allowed if also on the own lists
    if (roll == 6) {
      if (pick(2) == 0) {
        changed += " ";
      } else {
        changed[0] = static_cast<char>(changed[0] ^ 0x20);  // flips an ASCII letter's case
      }
      if (listed_.count(changed) == 0) return void(*value = *privateValues.insert(changed).first);
    }
    *value = privateValue();
  }

  std::string privateValue() { return *privateValues.insert("private-" + std::to_string(rng_())).first; }

  std::mt19937 rng_;
  const Pool &own_, &every_;
  const std::set<std::string> listed_;
};

TEST(StringPrivacyPropertyTest, NoStringOutsideThePlatformWhitelistIsEverSent) {
  const char* seedText = std::getenv("LUMVANE_PROPERTY_SEED");
  const uint32_t seed = seedText ? static_cast<uint32_t>(std::strtoul(seedText, nullptr, 10)) : 20240501u;
  SCOPED_TRACE("LUMVANE_PROPERTY_SEED=" + std::to_string(seed));
  constexpr uint64_t kObjectsPerPlatform = 4000;
  testing::ScopedLogCapture quiet(LogLevel::Error);
  testing::ScopedInternalDiagnostics notInternal(false);
  Pool everyList = ReadLists(kArdenosLists);  // Ardenos and Belvos between them hold every list
  for (const std::string& s : ReadLists(kBelvosLists)) everyList.push_back(s);
  const Pool perfPair[] = {ReadLists({"LVDesktopUIElementNames"}), ReadLists({"LVDesktopUIActionNames"})};

  for (const auto& [platform, lists] : kPlatforms) {
    SCOPED_TRACE(std::string("platform ") + LVPlatformName(platform));
    const Pool own = ReadLists(lists);
    const std::set<std::string> allowed(own.begin(), own.end());
    ObjectGenerator generator(seed + platform, own, everyList);
    auto sink = std::make_shared<RecordingDovetelSink>();
    auto previousSink = ExchangeDovetelEventSink(sink);
    FakeContinuousClock clock;
    RecordingSleeper sleeper(&clock);
    ReportThrottle throttle(clock, sleeper);
    std::shared_ptr<WorkQueue> queue = NewSerialWorkQueue("privacy");
    auto filter = LumvaneObjectFilter::initWithPlatform(platform);
    ASSERT_NE(filter, nullptr);
    auto perfLogging = [&, platform = platform](const Value* subsystem) {
      return platform == LVPlatformArdenos && subsystem && *subsystem == Value("com.orvel.Brackenfold");
    };
    auto listed = [&](const auto& name, const auto& value) { return !name || (value && allowed.count(*value)); };
    for (uint64_t i = 0; i < kObjectsPerPlatform; ++i) {
      auto object = generator.next();
      SignpostClassification c;
      if (filter->shouldReportSignpostObject(*object, &c)) {
        reportSignpostPayload(object, std::make_shared<const Dictionary>(*object->dovetelPayload()),
                              throttle, *queue);
      } else if (c == SignpostClassificationFailedStringWhitelist) {
        const Value subsystem(*object->subsystem());
        EXPECT_FALSE(!perfLogging(&subsystem) && listed(object->string1Name(), object->string1Value()) &&
                     listed(object->string2Name(), object->string2Value()))
            << "an object whose named values are all listed was refused";
      }
    }
    queue->sync([] {});
    ExchangeDovetelEventSink(previousSink);
    EXPECT_EQ(filter->allInspectedSignpostObjectsAggregation().totalCount(), kObjectsPerPlatform);
    EXPECT_EQ(filter->totalReportedIntervalCount() + filter->totalUnreportedIntervalCount() +
                  filter->totalReportedAnimationCount() + filter->totalUnreportedAnimationCount() +
                  filter->totalReportedEventCount() + filter->totalUnreportedEventCount(),
              kObjectsPerPlatform);

    size_t stringsSent = 0;
    for (const RecordingDovetelSink::Event& event : sink->events()) {
      const bool perf = perfLogging(event.payload.find("Subsystem"));
      for (const auto& [key, value] : event.payload) {
        const std::string* text = value.asString();
        if (!text) continue;
        ASSERT_EQ(generator.privateValues.count(*text), 0u)
            << event.name << " carries the private value \"" << *text << "\" under " << key;
        if (key != "String1Value" && key != "String2Value") continue;
        ++stringsSent;
        EXPECT_EQ(allowed.count(*text), 1u) << event.name << ": \"" << *text << "\" is not listed";
        const Pool& pair = perfPair[key == "String1Value" ? 0 : 1];
        EXPECT_TRUE(!perf || std::count(pair.begin(), pair.end(), *text))
            << "\"" << *text << "\" is not a performance-logging " << key;
      }
    }
    EXPECT_TRUE(own.empty() || stringsSent > 0) << "vacuous: no listed value was sent";
  }
}

}  // namespace
}  // namespace lumvane
