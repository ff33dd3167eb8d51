#include "bench/journal_read/OpenPart.h"

#include <malloc.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>

#include "bench/journal_read/ReaderRun.h"
#include "bench/support/PeakMemorySampler.h"
#include "bench/support/ResourceUsage.h"
#include "lumvane/signpost/JournalEntryText.h"
#include "lumvane/signpost/LogStoreExtractor.h"
#include "lumvane/signpost/SignpostStoreGenerator.h"

namespace lumvane::bench {

int OpenPart(const std::string& dir, uint64_t begins) {
  const std::string path = dir + "/open-" + std::to_string(begins) + ".json";
  if (!std::filesystem::exists(path)) {
    std::string text;
    const uint64_t startUsec = kStart.time_since_epoch().count();
    for (uint64_t i = 0; i < begins; ++i) {
      lumvane::JournalEntryText e;
      e.add("__REALTIME_TIMESTAMP", std::to_string(startUsec + i * 1000));
      e.add("_BOOT_ID", "0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a");
      e.add("_PID", "4242");
      e.add("_COMM", "composerd");
      e.add("_EXE", "/usr/bin/composerd");
      e.add("MESSAGE_ID", lumvane::SignpostStoreGenerator::kSignpostMessageId);
      e.add("SIGNPOST_TYPE", "begin");
      e.add("SIGNPOST_ID", std::to_string(i + 1));
      e.add("SIGNPOST_SCOPE", "process");
      e.add("SIGNPOST_SUBSYSTEM", "com.orvel.composer");
      e.add("SIGNPOST_CATEGORY", "Animation");
      e.add("SIGNPOST_NAME", "WindowTransition");
      e.add("SIGNPOST_STRING1_NAME", "Kind");
      e.add("SIGNPOST_STRING1_VALUE", "crossfade-" + std::to_string(i % 97));
      e.add("SIGNPOST_STRING2_NAME", "Source");
      e.add("SIGNPOST_STRING2_VALUE", "/home/user/Pictures/album-" + std::to_string(i % 89));
      e.add("SIGNPOST_NUMBER1_NAME", "Layers");
      e.add("SIGNPOST_NUMBER1_VALUE", std::to_string(i % 13));
      e.add("SIGNPOST_NUMBER2_NAME", "Scale");
      e.add("SIGNPOST_NUMBER2_VALUE", "1.25");
      e.add("SIGNPOST_ATTRIBUTE", "Style=slide-" + std::to_string(i % 7));
      e.add("SIGNPOST_ATTRIBUTE", "Seat=seat0");
      e.appendJson(&text, 0);
    }
    std::ofstream(path) << text;
  }
  std::printf("open begins: %llu begins that never end, cap %zu\n",
              static_cast<unsigned long long>(begins),
              lumvane::LogStoreExtractor::configuredMaxOpenIntervals());
  lumvane::LogStoreExtractor extractor;
  malloc_trim(0);
  const long before = StatusKiB("VmRSS:");
  PeakMemorySampler sampler;
  std::optional<lumvane::Error> error;
  const bool ok = extractor.processLogArchiveWithPath(path, kStart, kEnd, &error);
  long rss = 0, anon = 0;
  sampler.stop(&rss, &anon);
  const lumvane::LogStoreReadStatistics& s = extractor.lastReadStatistics();
  std::printf("  %s; %llu left open, %llu dropped at the cap\n", ok ? "read" : "failed",
              static_cast<unsigned long long>(s.unclosedBegins),
              static_cast<unsigned long long>(s.droppedOpenBegins));
  std::printf("  peak: VmRSS %ld KiB (%ld KiB before), RssAnon %ld KiB (goal: within 64 MB)\n",
              rss, before, anon);
  return ok ? 0 : 1;
}

}  // namespace lumvane::bench
