// Times a full read of a large signpost store through LogStoreExtractor and,
// as the baseline measured in the same run over the same file, a plain
// simdjson on-demand parse of every record (same chunked reader, every field
// of every object visited, nothing built). Reports records/s, MB/s, the
// ratio to the baseline and the peak resident memory.
//
// usage: log_store_read_bench [--records N] [--store PATH]
// Without --store it generates a store of N (default 1000000) records in
// which nothing would be reported, in a temporary directory, and deletes it.
#include <simdjson.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "lumvane/signpost/LogStoreExtractor.h"
#include "lumvane/signpost/LogStoreFile.h"
#include "lumvane/signpost/LogStoreTimestamp.h"
#include "lumvane/signpost/SignpostStoreGenerator.h"

namespace {

using Clock = std::chrono::steady_clock;

long PeakRssKiB() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return u.ru_maxrss;
}

struct Result {
  double seconds = 0;
  uint64_t records = 0;
};

Result Baseline(const std::string& path) {
  lumvane::LogStoreFile file;
  if (file.open(path)) std::exit(1);
  simdjson::ondemand::parser parser;
  Result r;
  uint64_t fields = 0;
  const auto t0 = Clock::now();
  std::string_view rec;
  while (file.next(&rec) == lumvane::LogStoreFile::Next::Record) {
    simdjson::ondemand::document doc;
    if (parser.iterate(rec.data(), rec.size(), rec.size() + lumvane::LogStoreFile::kPadding)
            .get(doc)) {
      continue;
    }
    simdjson::ondemand::object object;
    if (doc.get_object().get(object)) continue;
    for (auto field : object) {
      std::string_view key;
      if (field.unescaped_key().get(key)) break;
      fields += key.size() > 0;
    }
    ++r.records;
  }
  r.seconds = std::chrono::duration<double>(Clock::now() - t0).count();
  if (fields == 0) std::fprintf(stderr, "baseline visited no fields\n");
  return r;
}

Result Extract(const std::string& path, lumvane::Date start, lumvane::Date end,
               uint64_t* objects) {
  lumvane::LogStoreExtractor extractor;
  extractor.setIntervalCompletionProcessingBlock([&](auto) { return ++*objects, true; });
  extractor.setAnimationIntervalCompletionProcessingBlock([&](auto) { return ++*objects, true; });
  extractor.setEmitEventProcessingBlock([&](auto) { return ++*objects, true; });
  extractor.setBuildAnimationCompositeIntervalTimelines(false);
  std::optional<lumvane::Error> error;
  const auto t0 = Clock::now();
  const bool ok = extractor.processLogArchiveWithPath(path, start, end, &error);
  Result r;
  r.seconds = std::chrono::duration<double>(Clock::now() - t0).count();
  r.records = extractor.processedEventCount();
  if (!ok) {
    std::fprintf(stderr, "read failed: %s\n", error ? error->localizedDescription().c_str() : "");
    std::exit(1);
  }
  return r;
}

constexpr char kUsage[] =
    "usage: log_store_read_bench [--records N] [--store PATH]\n"
    "\n"
    "Times a full read of a signpost store through the log-store extractor next\n"
    "to a plain simdjson on-demand parse of every record of the same file, and\n"
    "reports records/s, MB/s and peak memory. Without --store it generates a\n"
    "store of N records (default 1000000, about 600 MB) in which nothing would\n"
    "be reported, in a temporary directory that it removes afterwards.\n";

}  // namespace

int main(int argc, char** argv) {
  uint64_t records = 1000000;
  std::string store;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if ((arg == "--records" || arg == "--store") && i + 1 < argc) {
      const char* value = argv[++i];
      if (arg == "--store") {
        store = value;
        continue;
      }
      char* endp = nullptr;
      records = std::strtoull(value, &endp, 10);
      if (*value == '\0' || *endp != '\0' || records == 0) {
        std::fprintf(stderr, "log_store_read_bench: --records needs a positive number, not '%s'\n%s",
                     value, kUsage);
        return 2;
      }
      continue;
    }
    std::fprintf(stderr, "log_store_read_bench: unexpected argument '%s'\n%s", arg.c_str(), kUsage);
    return 2;
  }
  const lumvane::Date end = *lumvane::ParseLogStoreTimestamp("2024-05-01 12:00:00.000000+0200");
  lumvane::Date start = end - std::chrono::hours(24);
  lumvane::Date last = end;
  std::string tempDir;
  if (store.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/lumvane-bench-XXXXXX";
    if (!mkdtemp(templ.data())) return 1;
    tempDir = templ;
    store = tempDir + "/store.ndjson";
    lumvane::SignpostStoreGeneratorOptions options;
    options.records = records;
    options.end = end;
    options.offsetMinutes = 120;
    options.accept = false;
    lumvane::SignpostStoreGenerator generator(options);
    if (const auto e = generator.writeTo(store)) {
      std::fprintf(stderr, "%s\n", e->localizedDescription().c_str());
      return 1;
    }
  } else {
    start = lumvane::Date{};  // a given store is read whole
    last = lumvane::Date(std::chrono::hours(24 * 365 * 200));
  }
  struct stat st{};
  stat(store.c_str(), &st);
  const double mb = static_cast<double>(st.st_size) / 1e6;
  const long rssBefore = PeakRssKiB();

  const Result base = Baseline(store);
  const long rssBase = PeakRssKiB();
  uint64_t objects = 0;
  const Result read = Extract(store, start, last, &objects);
  const long rssRead = PeakRssKiB();

  std::printf("store: %s, %.1f MB, %.0f bytes/record\n", store.c_str(), mb,
              st.st_size / static_cast<double>(base.records ? base.records : 1));
  std::printf("baseline (on-demand parse of every record): %llu records in %.3f s, %.0f records/s, "
              "%.1f MB/s\n",
              static_cast<unsigned long long>(base.records), base.seconds,
              base.records / base.seconds, mb / base.seconds);
  std::printf("extractor: %llu records in window, %llu objects delivered, %.3f s, %.0f records/s, "
              "%.1f MB/s\n",
              static_cast<unsigned long long>(read.records),
              static_cast<unsigned long long>(objects), read.seconds,
              read.records / read.seconds, mb / read.seconds);
  std::printf("extractor time / baseline time: %.2f\n", read.seconds / base.seconds);
  std::printf("peak RSS (KiB): before reading %ld, after baseline %ld, after extractor %ld\n",
              rssBefore, rssBase, rssRead);
  if (!tempDir.empty()) {
    unlink(store.c_str());
    rmdir(tempDir.c_str());
  }
  return 0;
}
