// The privacy promise as a property: many random signpost objects go through
// the object filter, the payload builders and the reporting path, and no
// string argument value outside its platform's whitelist may reach a sent
// event. Which values are allowed is worked out here from the list files
// themselves and the platform-to-lists table below, never by asking the
// whitelist code. Seeded and deterministic: LUMVANE_PROPERTY_SEED picks
// another seed, and every failure names the seed it ran with.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "lumvane/filter/LumvaneObjectFilter.h"
#include "lumvane/platform/DovetelEventSink.h"
#include "lumvane/platform/WorkQueue.h"
#include "lumvane/signpost/SignpostAnimationInterval.h"
#include "lumvane/signpost/SignpostEvent.h"
#include "lumvane/signpost/SignpostInterval.h"
#include "lumvane/telemetry/ReportSignpostPayload.h"
#include "lumvane/telemetry/ReportThrottle.h"
#include "tests/support/TestSupport.h"
#include "tests/support/platform/FakeContinuousClock.h"
#include "tests/support/platform/RecordingDovetelSink.h"
#include "tests/support/platform/RecordingSleeper.h"

namespace lumvane {
namespace {

using Pool = std::vector<std::string>;

Pool ReadList(const std::string& list) {
  std::ifstream in(std::string(LUMVANE_SOURCE_DIR) + "/lumvane/filter/data/" + list + ".txt");
  Pool entries;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty()) entries.push_back(line);
  }
  EXPECT_FALSE(entries.empty()) << list;
  return entries;
}

struct PlatformLists {
  LVPlatform platform;
  std::vector<const char*> lists;
};

const PlatformLists kPlatforms[] = {
    {LVPlatformArdenos,
     {"LVDesktopUIElementNames", "LVDesktopUIActionNames", "LVDesktopBundleIdentifiers",
      "LVFilesystemAndIndexScanTokens", "LVSharedStringValues"}},
    {LVPlatformBelvos,
     {"LVPhoneUILocationNames", "LVCameraEventValues", "LVShareActivityTypes",
      "LVPhoneExtensionBundleIdentifiers", "LVCalendarViewNames", "LVSizeNames",
      "LVMailAccountTypes", "LVGenerationSourceNames", "LVSharedStringValues"}},
    {LVPlatformCirros, {"LVSharedStringValues"}},
    {LVPlatformDalvos, {"LVSharedStringValues"}},
    {LVPlatformElmos, {}},
};

struct Identity {
  const char* subsystem;
  const char* category;
  const char* name;
};

// The desktop performance-logging signpost, the entries of the built-in name
// filters, and names no table knows.
const Identity kIdentities[] = {
    {"com.orvel.Brackenfold", "PerfLogging", "PerfLoggingOperation"},
    {"com.orvel.Lanternfield", "Startup", "Launch"},
    {"com.orvel.velmarsh.quillary", "signpost", "Tallowmark"},
    {"com.orvel.Pettimore.HighSeverity", "MurkwaterCondition", "HollowgateCondition"},
    {"com.example.mail", "Sync", "Fetch"},
    {"com.example.photos", "Import", "Scan"},
};

class ObjectGenerator {
 public:
  ObjectGenerator(uint32_t seed, Pool own, Pool everyList)
      : rng_(seed),
        own_(std::move(own)),
        everyList_(std::move(everyList)),
        listed_(everyList_.begin(), everyList_.end()) {}

  // Values that must never leave the process: unknown to every list, or a
  // listed value changed by one character or its case.
  const std::set<std::string>& privateValues() const { return private_; }

  std::shared_ptr<const SignpostObject> next() {
    SignpostObjectProperties p;
    const Identity& id = kIdentities[pick(std::size(kIdentities))];
    p.subsystem = id.subsystem;
    p.category = id.category;
    p.name = id.name;
    fillString(&p.string1Name, &p.string1Value);
    fillString(&p.string2Name, &p.string2Value);
    p.durationSeconds = std::uniform_real_distribution<float>(-1.0f, 5.0f)(rng_);
    p.telemetryEnabled = pick(10) != 0;
    auto side = [&] {
      return std::make_shared<const SignpostEvent>(p, std::string("proc"), std::nullopt);
    };
    switch (pick(3)) {
      case 0:
        return std::make_shared<const SignpostEvent>(p, std::string("proc"), std::nullopt);
      case 1:
        return std::make_shared<const SignpostInterval>(p, side(), side());
      default:
        return std::make_shared<const SignpostAnimationInterval>(p, side(), side(), Dictionary{},
                                                                 60.0f);
    }
  }

 private:
  size_t pick(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng_); }

  // Argument names carry no private data and are reported as given; they
  // vary so that no check can lean on a particular one.
  std::string argumentName() {
    static const char* const kNames[] = {"Element", "Action", "Store", "Mode", "Kind"};
    if (pick(4) == 0) return "arg" + std::to_string(pick(1000));
    return kNames[pick(std::size(kNames))];
  }

  void fillString(std::optional<std::string>* name, std::optional<std::string>* value) {
    if (pick(5) == 0) {  // no such argument, though maybe a stray value
      if (pick(2) == 0) privateValue(value);
      return;
    }
    *name = argumentName();
    switch (pick(10)) {
      case 0:
        return;  // named, but without a value
      case 1:
      case 2:
      case 3:
        if (!own_.empty()) {
          *value = own_[pick(own_.size())];
          return;
        }
        break;
      case 4:
      case 5:
        *value = everyList_[pick(everyList_.size())];  // allowed only if also in `own_`
        return;
      case 6: {
        std::string listed = everyList_[pick(everyList_.size())];
        std::string changed = listed + " ";
        if (pick(2) == 0) {
          changed = listed;
          changed[0] = static_cast<char>(changed[0] ^ 0x20);  // flips an ASCII letter's case
        }
        if (listed_.count(changed) != 0) break;
        *value = changed;
        private_.insert(changed);
        return;
      }
      default:
        break;
    }
    privateValue(value);
  }

  void privateValue(std::optional<std::string>* value) {
    *value = "private-" + std::to_string(rng_());
    private_.insert(**value);
  }

  std::mt19937 rng_;
  const Pool own_;
  const Pool everyList_;
  const std::set<std::string> listed_;
  std::set<std::string> private_;
};

TEST(StringPrivacyPropertyTest, NoStringOutsideThePlatformWhitelistIsEverSent) {
  const char* seedText = std::getenv("LUMVANE_PROPERTY_SEED");
  const uint32_t seed = seedText ? static_cast<uint32_t>(std::strtoul(seedText, nullptr, 10))
                                 : 20240501u;
  SCOPED_TRACE("LUMVANE_PROPERTY_SEED=" + std::to_string(seed));
  constexpr int kObjectsPerPlatform = 4000;

  testing::ScopedLogCapture quiet(LogLevel::Error);
  testing::ScopedInternalDiagnostics notInternal(false);
  Pool everyList;
  for (const char* list :
       {"LVDesktopUIElementNames", "LVDesktopUIActionNames", "LVDesktopBundleIdentifiers",
        "LVFilesystemAndIndexScanTokens", "LVSharedStringValues", "LVPhoneUILocationNames",
        "LVCameraEventValues", "LVShareActivityTypes", "LVPhoneExtensionBundleIdentifiers",
        "LVCalendarViewNames", "LVSizeNames", "LVMailAccountTypes", "LVGenerationSourceNames"}) {
    Pool entries = ReadList(list);
    everyList.insert(everyList.end(), entries.begin(), entries.end());
  }
  const Pool elements = ReadList("LVDesktopUIElementNames");
  const Pool actions = ReadList("LVDesktopUIActionNames");

  for (const PlatformLists& platform : kPlatforms) {
    SCOPED_TRACE(std::string("platform ") + LVPlatformName(platform.platform));
    Pool own;
    for (const char* list : platform.lists) {
      Pool entries = ReadList(list);
      own.insert(own.end(), entries.begin(), entries.end());
    }
    const std::set<std::string> allowed(own.begin(), own.end());
    ObjectGenerator generator(seed + platform.platform, own, everyList);

    auto sink = std::make_shared<RecordingDovetelSink>();
    auto previousSink = ExchangeDovetelEventSink(sink);
    FakeContinuousClock clock;
    RecordingSleeper sleeper(&clock);
    ReportThrottle throttle(clock, sleeper);
    std::shared_ptr<WorkQueue> queue = NewSerialWorkQueue("privacy");
    auto filter = LumvaneObjectFilter::initWithPlatform(platform.platform);
    ASSERT_NE(filter, nullptr);
    for (int i = 0; i < kObjectsPerPlatform; ++i) {
      auto object = generator.next();
      if (!filter->shouldReportSignpostObject(*object, nullptr)) continue;
      if (std::optional<Dictionary> payload = object->dovetelPayload()) {
        reportSignpostPayload(object, std::make_shared<const Dictionary>(*std::move(payload)),
                              throttle, *queue);
      }
    }
    queue->sync([] {});
    ExchangeDovetelEventSink(previousSink);

    size_t stringsSent = 0;
    for (const RecordingDovetelSink::Event& event : sink->events()) {
      const Value* subsystem = event.payload.find("Subsystem");
      const bool perfLogging = platform.platform == LVPlatformArdenos && subsystem &&
                               *subsystem == Value("com.orvel.Brackenfold");
      for (const auto& [key, value] : event.payload) {
        const std::string* text = value.asString();
        if (!text) continue;
        ASSERT_EQ(generator.privateValues().count(*text), 0u)
            << event.name << " carries the private value \"" << *text << "\" under " << key;
        if (key != "String1Value" && key != "String2Value") continue;
        ++stringsSent;
        EXPECT_EQ(allowed.count(*text), 1u)
            << event.name << ": \"" << *text << "\" is not on the platform's lists";
        if (perfLogging) {
          const Pool& pair = key == "String1Value" ? elements : actions;
          EXPECT_NE(std::find(pair.begin(), pair.end(), *text), pair.end())
              << "\"" << *text << "\" is not a performance-logging " << key;
        }
      }
    }
    // Not vacuous: every platform with a list sends some of its values.
    if (!own.empty()) {
      EXPECT_GT(stringsSent, 0u);
    }
  }
}

}  // namespace
}  // namespace lumvane
