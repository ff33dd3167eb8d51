// Times the signpost reader over both store forms against baselines
// measured in the same run over the same data, alternating the contenders
// run by run and reporting medians (the machine may be shared):
//  - journal files: a day with about N signpost entries and other programs'
//    entries between them, made by systemd-journal-remote from the
//    generator's export form; baseline `journalctl -D DIR -o export
//    MESSAGE_ID=<signpost ID>` writing to /dev/null, reported as journalctl's
//    time over the reader's. Beside it, libsystemd's own walk over the same
//    entries with one data enumeration each: the floor for a reader.
//  - JSON lines as journalctl prints them: the reader over one file of N
//    lines; baseline a bare single-threaded simdjson on-demand parse over a
//    reused 4 MB buffer that reads the same fields, reported as the
//    baseline's time over the reader's.
// For each reader run it reports the peak resident memory and the peak
// anonymous memory (VmRSS and RssAnon in /proc/self/status, sampled while
// it runs): mapped journal files count in the first, not in the second. It
// also splits the reader's CPU time between the calling thread (decoding,
// pairing, callbacks) and the reading thread: on a quiet machine the
// larger of the two bounds the reader's time.
// Beside the times it counts the heap allocations the reader makes per
// store record and per signpost (every operator new of the process while the
// reader runs, both of its threads; libsystemd's own malloc calls are not
// counted).
// Generated data lives in a temporary directory that is removed at the end,
// or in --data DIR, where it is kept and reused by the next run.
#include <fcntl.h>
#include <malloc.h>
#include <new>
#include <simdjson.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "lumvane/signpost/JournalEntryText.h"
#include "lumvane/signpost/LogStoreExtractor.h"
#include "lumvane/signpost/SignpostStoreGenerator.h"

// Every operator new of the process, counted, but for the memory sampler's
// thread: between two readings the count is the reader's alone. Kept out of
// line, so that the compiler sees plain operator new and delete pairs.
std::atomic<uint64_t> gAllocations{0};
thread_local bool tUncounted = false;

[[gnu::noinline]] void* operator new(std::size_t size) {
  if (!tUncounted) gAllocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t align) {
  if (!tUncounted) gAllocations.fetch_add(1, std::memory_order_relaxed);
  const size_t a = static_cast<size_t>(align);
  if (void* p = std::aligned_alloc(a, (size + a - 1) / a * a)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
  std::free(p);
}

namespace {

using Clock = std::chrono::steady_clock;
constexpr char kJournalRemote[] = "/lib/systemd/systemd-journal-remote";
constexpr char kJournalctl[] = "/usr/bin/journalctl";
// 2024-05-01 12:00:00 +02:00.
const lumvane::Date kEnd{std::chrono::seconds(1714557600)};
const lumvane::Date kStart = kEnd - std::chrono::hours(24);

constexpr char kUsage[] =
    "usage: journal_read_bench [--signposts N] [--lines N] [--only journal|json|open]\n"
    "                          [--repeat N] [--data DIR]\n"
    "\n"
    "Times the signpost reader over journal files holding about N signpost\n"
    "entries (default 1000000, with other programs' entries between them) next to\n"
    "`journalctl -D DIR -o export MESSAGE_ID=...` over the same files, and over a\n"
    "JSON-lines file of N lines (default 1000000) next to a bare simdjson on-demand\n"
    "parse of the same fields. Each contender runs --repeat times (default 3),\n"
    "alternating; medians and their ratios are printed with the reader's peak\n"
    "resident and anonymous memory. Needs systemd-journal-remote and journalctl\n"
    "for the journal part. The open part reads 200000 begins that never end and\n"
    "reports the peak memory under the cap on open begins. Data is generated in a\n"
    "temporary directory ($TMPDIR or /tmp) and removed, or in DIR with --data,\n"
    "where it is kept and reused.\n";

// User and system CPU seconds of this process (RUSAGE_SELF), of the calling
// thread (RUSAGE_THREAD) or of its waited-for children (RUSAGE_CHILDREN).
// The machine may be shared, so wall time is read next to the CPU time
// that the same work took.
double CpuSeconds(int who) {
  struct rusage u;
  getrusage(who, &u);
  return u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

long StatusKiB(const char* key) {
  std::ifstream in("/proc/self/status");
  const size_t n = std::strlen(key);
  for (std::string line; std::getline(in, line);) {
    if (line.compare(0, n, key) == 0) return std::strtol(line.c_str() + n, nullptr, 10);
  }
  return -1;
}

// Samples VmRSS and RssAnon every few milliseconds while it lives.
class PeakMemorySampler {
 public:
  PeakMemorySampler() : rss_(StatusKiB("VmRSS:")), anon_(StatusKiB("RssAnon:")) {
    thread_ = std::thread([this] {
      tUncounted = true;
      while (!stop_) {
        rss_ = std::max<long>(rss_, StatusKiB("VmRSS:"));
        anon_ = std::max<long>(anon_, StatusKiB("RssAnon:"));
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
      cpu_ = CpuSeconds(RUSAGE_THREAD);
    });
  }
  // The sampler's own CPU time, so that it can be told from the reader's.
  void stop(long* rssKiB, long* anonKiB, double* cpuSeconds = nullptr) {
    stop_ = true;
    thread_.join();
    *rssKiB = rss_;
    *anonKiB = anon_;
    if (cpuSeconds) *cpuSeconds = cpu_;
  }

 private:
  std::atomic<bool> stop_{false};
  std::atomic<long> rss_, anon_;
  double cpu_ = 0;  // written by the thread before it ends
  std::thread thread_;
};

struct ReaderRun {
  double seconds = 0, cpuSeconds = 0;
  double callingCpuSeconds = 0;  // the calling thread's share of cpuSeconds
  uint64_t processed = 0, objects = 0;
  uint64_t allocations = 0;  // operator new calls while the reader ran
  long rssPeakKiB = 0, anonBeforeKiB = 0, anonPeakKiB = 0;
};

ReaderRun RunReader(const std::string& store) {
  lumvane::LogStoreExtractor extractor;
  ReaderRun r;
  extractor.setIntervalCompletionProcessingBlock([&](auto) { return ++r.objects, true; });
  extractor.setAnimationIntervalCompletionProcessingBlock([&](auto) { return ++r.objects, true; });
  extractor.setEmitEventProcessingBlock([&](auto) { return ++r.objects, true; });
  std::optional<lumvane::Error> error;
  // Memory freed earlier (the generator's buffers) would otherwise stay
  // resident and hide what the reader takes.
  malloc_trim(0);
  r.anonBeforeKiB = StatusKiB("RssAnon:");
  PeakMemorySampler sampler;
  const double cpu0 = CpuSeconds(RUSAGE_SELF);
  const double callingCpu0 = CpuSeconds(RUSAGE_THREAD);
  const uint64_t allocations0 = gAllocations.load();
  const auto t0 = Clock::now();
  const bool ok = extractor.processLogArchiveWithPath(store, kStart, kEnd, &error);
  r.seconds = std::chrono::duration<double>(Clock::now() - t0).count();
  r.allocations = gAllocations.load() - allocations0;
  r.callingCpuSeconds = CpuSeconds(RUSAGE_THREAD) - callingCpu0;
  double samplerCpu = 0;
  sampler.stop(&r.rssPeakKiB, &r.anonPeakKiB, &samplerCpu);
  r.cpuSeconds = CpuSeconds(RUSAGE_SELF) - cpu0 - samplerCpu;
  r.processed = extractor.processedEventCount();
  if (!ok) {
    std::fprintf(stderr, "journal_read_bench: reading %s failed: %s\n", store.c_str(),
                 error ? error->localizedDescription().c_str() : "(no error given)");
  }
  return r;
}

// Runs a program with standard output to /dev/null; answers its time, or a
// negative number when it failed, and its CPU time in *cpu.
double TimeProgram(const std::vector<std::string>& argv, double* cpu) {
  const double cpu0 = CpuSeconds(RUSAGE_CHILDREN);
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  const auto t0 = Clock::now();
  const pid_t pid = fork();
  if (pid == 0) {
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    execv(args[0], args.data());
    _exit(127);
  }
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
  const double s = std::chrono::duration<double>(Clock::now() - t0).count();
  *cpu = CpuSeconds(RUSAGE_CHILDREN) - cpu0;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? s : -1;
}

// libsystemd alone: every signpost entry of the directory visited with one
// data enumeration, nothing decoded. Answers its time, or a negative number.
double TimeJournalWalk(const std::string& dir, uint64_t* entries, double* cpu) {
  const double cpu0 = CpuSeconds(RUSAGE_SELF);
  const auto t0 = Clock::now();
  sd_journal* j = nullptr;
  if (sd_journal_open_directory(&j, dir.c_str(), 0) < 0) return -1;
  const std::string match =
      std::string("MESSAGE_ID=") + lumvane::SignpostStoreGenerator::kSignpostMessageId;
  (void)sd_journal_set_data_threshold(j, 0);
  (void)sd_journal_add_match(j, match.data(), match.size());
  size_t bytes = 0;
  *entries = 0;
  while (sd_journal_next(j) > 0) {
    ++*entries;
    const void* data = nullptr;
    size_t length = 0;
    SD_JOURNAL_FOREACH_DATA(j, data, length) bytes += length;
  }
  sd_journal_close(j);
  const double s = std::chrono::duration<double>(Clock::now() - t0).count();
  *cpu = CpuSeconds(RUSAGE_SELF) - cpu0;
  return bytes == 0 ? -1 : s;
}

// Reads the file at `path`, or every file under it, once so that all
// contenders start warm.
void Warm(const std::string& path) {
  std::vector<std::string> files;
  if (std::filesystem::is_directory(path)) {
    for (const auto& e : std::filesystem::recursive_directory_iterator(path)) {
      if (e.is_regular_file()) files.push_back(e.path());
    }
  } else {
    files.push_back(path);
  }
  std::vector<char> buf(1 << 20);
  for (const std::string& file : files) {
    const int fd = open(file.c_str(), O_RDONLY);
    while (fd >= 0 && read(fd, buf.data(), buf.size()) > 0) {
    }
    if (fd >= 0) close(fd);
  }
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

std::string Times(const std::vector<double>& v) {
  std::string s;
  for (double t : v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%s%.3f", s.empty() ? "" : " ", t);
    s += buf;
  }
  return s;
}

// Counts kept beside generated data, so that --data DIR can reuse it.
bool LoadCounts(const std::string& path, uint64_t* a, uint64_t* b) {
  std::ifstream in(path);
  return static_cast<bool>(in >> *a >> *b);
}
void SaveCounts(const std::string& path, uint64_t a, uint64_t b) { std::ofstream(path) << a << ' ' << b << '\n'; }

// The baseline of the JSON form: one parser, one 4 MB buffer refilled in
// place (a line cut by the buffer's end moves to its front), every line
// parsed on demand and the fields a signpost reader needs read out.
struct BaselineRun {
  double seconds = 0, cpuSeconds = 0;
  uint64_t lines = 0, signposts = 0, fieldsRead = 0;
};

BaselineRun Baseline(const std::string& path) {
  static const char* const kWanted[] = {"MESSAGE_ID",
                                        "__REALTIME_TIMESTAMP",
                                        "__MONOTONIC_TIMESTAMP",
                                        "_BOOT_ID",
                                        "_PID",
                                        "_EXE",
                                        "_COMM",
                                        "OBJECT_PID",
                                        "OBJECT_EXE",
                                        "OBJECT_COMM",
                                        "SIGNPOST_TYPE",
                                        "SIGNPOST_ID",
                                        "SIGNPOST_SCOPE",
                                        "SIGNPOST_SUBSYSTEM",
                                        "SIGNPOST_CATEGORY",
                                        "SIGNPOST_NAME",
                                        "SIGNPOST_TELEMETRY",
                                        "SIGNPOST_ANIMATION",
                                        "SIGNPOST_STRING1_NAME",
                                        "SIGNPOST_STRING1_VALUE",
                                        "SIGNPOST_STRING2_NAME",
                                        "SIGNPOST_STRING2_VALUE",
                                        "SIGNPOST_NUMBER1_NAME",
                                        "SIGNPOST_NUMBER1_VALUE",
                                        "SIGNPOST_NUMBER2_NAME",
                                        "SIGNPOST_NUMBER2_VALUE",
                                        "SIGNPOST_ATTRIBUTE",
                                        "SIGNPOST_TID",
                                        "SIGNPOST_BOOTTIME_NSEC"};
  BaselineRun r;
  const int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0) return r;
  constexpr size_t kBuffer = size_t{4} << 20;
  std::vector<char> buf(kBuffer + simdjson::SIMDJSON_PADDING);
  simdjson::ondemand::parser parser;
  size_t have = 0;
  const double cpu0 = CpuSeconds(RUSAGE_SELF);
  const auto t0 = Clock::now();
  for (;;) {
    const ssize_t n = read(fd, buf.data() + have, kBuffer - have);
    if (n < 0) break;
    have += static_cast<size_t>(n);
    size_t pos = 0;
    while (pos < have) {
      const char* nl = static_cast<const char*>(std::memchr(buf.data() + pos, '\n', have - pos));
      if (!nl && n > 0) break;  // wait for the rest of the line
      const size_t end = nl ? static_cast<size_t>(nl - buf.data()) : have;
      ++r.lines;
      simdjson::ondemand::document doc;
      simdjson::ondemand::object object;
      // The line is followed by readable bytes up to the padding.
      if (!parser.iterate(buf.data() + pos, end - pos, buf.size() - pos).get(doc) &&
          !doc.get_object().get(object)) {
        for (auto field : object) {
          std::string_view key;
          if (field.unescaped_key().get(key)) break;
          bool wanted = false;
          for (const char* w : kWanted) wanted = wanted || key == w;
          if (!wanted) continue;
          simdjson::ondemand::value v;
          if (field.value().get(v)) break;
          std::string_view s;
          if (!v.get_string().get(s)) {
            ++r.fieldsRead;
            r.signposts +=
                key == "MESSAGE_ID" && s == lumvane::SignpostStoreGenerator::kSignpostMessageId;
          } else {
            simdjson::ondemand::array a;
            if (!v.get_array().get(a)) {
              for (auto item : a) r.fieldsRead += !item.get_string().get(s);
            }
          }
        }
      }
      pos = end + 1;
    }
    if (n == 0) break;
    std::memmove(buf.data(), buf.data() + std::min(pos, have), have - std::min(pos, have));
    have -= std::min(pos, have);
  }
  r.seconds = std::chrono::duration<double>(Clock::now() - t0).count();
  r.cpuSeconds = CpuSeconds(RUSAGE_SELF) - cpu0;
  close(fd);
  return r;
}

void PrintAllocations(const ReaderRun& r, uint64_t records) {
  if (records == 0 || r.processed == 0) return;
  std::printf("  reader heap allocations: %llu, %.2f per store record, %.2f per signpost\n",
              static_cast<unsigned long long>(r.allocations),
              static_cast<double>(r.allocations) / static_cast<double>(records),
              static_cast<double>(r.allocations) / static_cast<double>(r.processed));
}

bool ParsePositive(const char* text, uint64_t* out) {
  char* end = nullptr;
  const unsigned long long v = std::strtoull(text, &end, 10);
  if (*text == '\0' || *end != '\0' || *text == '-' || v == 0) return false;
  *out = v;
  return true;
}

int JournalPart(const std::string& dir, uint64_t signposts, uint64_t repeat) {
  if (access(kJournalRemote, X_OK) != 0 || access(kJournalctl, X_OK) != 0) {
    std::printf("journal files: skipped (%s or %s missing)\n", kJournalRemote, kJournalctl);
    return 0;
  }
  const std::string journalDir = dir + "/journal-" + std::to_string(signposts);
  const std::string countsPath = journalDir + ".counts";
  uint64_t entries = 0, expected = 0;
  if (!LoadCounts(countsPath, &entries, &expected)) {
    std::filesystem::remove_all(journalDir);
    std::filesystem::create_directory(journalDir);
    lumvane::SignpostStoreGeneratorOptions o;
    o.seed = 3;
    o.end = kEnd;
    o.format = lumvane::SignpostStoreFormat::JournalExport;
    o.records = signposts * 100 / 70;  // about 70% of the entries are signposts
    const std::string command =
        std::string(kJournalRemote) + " --output=" + journalDir + "/system.journal - 2>/dev/null";
    std::FILE* pipe = popen(command.c_str(), "w");
    if (!pipe) return 1;
    lumvane::SignpostStoreGenerator generator(o);
    const auto error = generator.writeTo(pipe, "systemd-journal-remote");
    if (pclose(pipe) != 0 || error) {
      std::fprintf(stderr, "journal_read_bench: making journal files failed\n");
      return 1;
    }
    entries = generator.counts().records;
    expected = generator.counts().signposts;
    SaveCounts(countsPath, entries, expected);
  }
  uint64_t bytes = 0;
  for (const auto& e : std::filesystem::directory_iterator(journalDir)) bytes += e.file_size();
  std::printf("journal files: %llu entries, %llu signposts, %.1f MB in %s\n",
              static_cast<unsigned long long>(entries), static_cast<unsigned long long>(expected),
              bytes / 1e6, journalDir.c_str());
  Warm(journalDir);
  std::vector<double> journalctl, walk, reader, journalctlCpu, walkCpu, readerCpu;
  std::vector<double> callingCpu, readingCpu;
  ReaderRun last;
  long rssPeak = 0, anonPeak = 0;
  uint64_t walked = 0;
  const std::vector<std::string> journalctlArgs = {
      kJournalctl, "-D", journalDir, "-o", "export",
      std::string("MESSAGE_ID=") + lumvane::SignpostStoreGenerator::kSignpostMessageId};
  for (uint64_t i = 0; i < repeat; ++i) {
    // Alternate who goes first, so that a burst of load elsewhere does not
    // fall on one contender only.
    std::vector<std::function<void()>> runs = {
        [&] {
          double cpu = 0;
          journalctl.push_back(TimeProgram(journalctlArgs, &cpu));
          journalctlCpu.push_back(cpu);
        },
        [&] {
          double cpu = 0;
          walk.push_back(TimeJournalWalk(journalDir, &walked, &cpu));
          walkCpu.push_back(cpu);
        },
        [&] {
          last = RunReader(journalDir);
          reader.push_back(last.seconds);
          readerCpu.push_back(last.cpuSeconds);
          callingCpu.push_back(last.callingCpuSeconds);
          readingCpu.push_back(last.cpuSeconds - last.callingCpuSeconds);
          rssPeak = std::max(rssPeak, last.rssPeakKiB);
          anonPeak = std::max(anonPeak, last.anonPeakKiB - last.anonBeforeKiB);
        }};
    if (i % 2) std::reverse(runs.begin(), runs.end());
    for (auto& run : runs) run();
  }
  const double j = Median(journalctl), w = Median(walk), r = Median(reader);
  std::printf("  journalctl -o export MESSAGE_ID=...: %s s, median %.3f s, CPU %.3f s\n",
              Times(journalctl).c_str(), j, Median(journalctlCpu));
  std::printf(
      "  libsystemd walk, one enumeration per entry: %s s, median %.3f s, CPU %.3f s (%llu "
      "entries)\n",
      Times(walk).c_str(), w, Median(walkCpu), static_cast<unsigned long long>(walked));
  std::printf(
      "  reader: %s s, median %.3f s, CPU %.3f s; %llu signposts processed, %llu objects "
      "delivered\n",
      Times(reader).c_str(), r, Median(readerCpu), static_cast<unsigned long long>(last.processed),
      static_cast<unsigned long long>(last.objects));
  std::printf("  reader CPU by thread: calling (decode, pair, callbacks) %.3f s, reading %.3f s\n",
              Median(callingCpu), Median(readingCpu));
  if (last.processed == 0 || j <= 0) {
    std::printf("  journalctl time / reader time: not measured (a side read nothing)\n");
  } else {
    std::printf("  journalctl time / reader time: %.2f (goal: at least 3)\n", j / r);
    if (w > 0) std::printf("  walk time / reader time: %.2f\n", w / r);
  }
  PrintAllocations(last, entries);
  std::printf("  reader peak: VmRSS %ld KiB (mapped journal files included), RssAnon +%ld KiB\n",
              rssPeak, anonPeak);
  if (last.processed != expected) {
    std::printf("  note: the reader processed %llu signposts, the files hold %llu\n",
                static_cast<unsigned long long>(last.processed),
                static_cast<unsigned long long>(expected));
  }
  return 0;
}

int JsonPart(const std::string& dir, uint64_t lines, uint64_t repeat) {
  const std::string path = dir + "/day-" + std::to_string(lines) + ".json";
  const std::string countsPath = path + ".counts";
  uint64_t records = 0, expected = 0;
  if (!LoadCounts(countsPath, &records, &expected)) {
    lumvane::SignpostStoreGeneratorOptions o;
    o.seed = 4;
    o.end = kEnd;
    o.records = lines;
    lumvane::SignpostStoreGenerator generator(o);
    if (const auto e = generator.writeTo(path)) {
      std::fprintf(stderr, "journal_read_bench: %s\n", e->localizedDescription().c_str());
      return 1;
    }
    records = generator.counts().records;
    expected = generator.counts().signposts;
    SaveCounts(countsPath, records, expected);
  }
  const double mb = std::filesystem::file_size(path) / 1e6;
  std::printf("JSON lines: %llu lines, %llu signposts, %.1f MB\n",
              static_cast<unsigned long long>(records), static_cast<unsigned long long>(expected),
              mb);
  Warm(path);
  std::vector<double> baseline, reader, baselineCpu, readerCpu, callingCpu, readingCpu;
  BaselineRun base;
  ReaderRun last;
  long rssPeak = 0, anonPeak = 0;
  for (uint64_t i = 0; i < repeat; ++i) {
    std::vector<std::function<void()>> runs = {
        [&] {
          base = Baseline(path);
          baseline.push_back(base.seconds);
          baselineCpu.push_back(base.cpuSeconds);
        },
        [&] {
          last = RunReader(path);
          reader.push_back(last.seconds);
          readerCpu.push_back(last.cpuSeconds);
          callingCpu.push_back(last.callingCpuSeconds);
          readingCpu.push_back(last.cpuSeconds - last.callingCpuSeconds);
          rssPeak = std::max(rssPeak, last.rssPeakKiB);
          anonPeak = std::max(anonPeak, last.anonPeakKiB);
        }};
    if (i % 2) std::reverse(runs.begin(), runs.end());
    for (auto& run : runs) run();
  }
  const double b = Median(baseline), r = Median(reader);
  std::printf(
      "  baseline (simdjson on-demand, 4 MB buffer, same fields): %s s, median %.3f s, "
      "CPU %.3f s, %.1f MB/s, %llu signposts, %llu values read\n",
      Times(baseline).c_str(), b, Median(baselineCpu), mb / b, static_cast<unsigned long long>(base.signposts),
      static_cast<unsigned long long>(base.fieldsRead));
  std::printf(
      "  reader: %s s, median %.3f s, CPU %.3f s, %.1f MB/s, %llu signposts processed, %llu "
      "objects delivered\n",
      Times(reader).c_str(), r, Median(readerCpu), mb / r, static_cast<unsigned long long>(last.processed),
              static_cast<unsigned long long>(last.objects));
  std::printf("  reader CPU by thread: calling (decode, pair, callbacks) %.3f s, reading %.3f s\n",
              Median(callingCpu), Median(readingCpu));
  if (last.processed == 0) {
    std::printf("  baseline time / reader time: not measured (the reader read nothing)\n");
  } else {
    std::printf("  baseline time / reader time: %.2f (goal: at least 1)\n", b / r);
  }
  PrintAllocations(last, records);
  std::printf("  reader peak: VmRSS %ld KiB, RssAnon %ld KiB (whole process)\n", rssPeak,
              anonPeak);
  return 0;
}

// Memory under begins that never end: N begins (distinct signposts, each
// with every argument slot and two attributes filled) read with the default
// cap on open begins, which must keep the whole process within 64 MB.
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

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  uint64_t signposts = 1000000, lines = 1000000, repeat = 3;
  std::string only, data;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (i + 1 < argc && (arg == "--signposts" || arg == "--lines" || arg == "--repeat")) {
      uint64_t* out = arg == "--lines" ? &lines : arg == "--repeat" ? &repeat : &signposts;
      if (!ParsePositive(argv[++i], out)) {
        std::fprintf(stderr, "journal_read_bench: %s needs a positive number, not '%s'\n%s",
                     arg.c_str(), argv[i], kUsage);
        return 2;
      }
      continue;
    }
    if (i + 1 < argc && arg == "--only" &&
        (std::strcmp(argv[i + 1], "journal") == 0 || std::strcmp(argv[i + 1], "json") == 0 ||
         std::strcmp(argv[i + 1], "open") == 0)) {
      only = argv[++i];
      continue;
    }
    if (i + 1 < argc && arg == "--data") {
      data = argv[++i];
      continue;
    }
    std::fprintf(stderr, "journal_read_bench: unexpected argument '%s'\n%s", arg.c_str(), kUsage);
    return 2;
  }
  std::string dir = data;
  if (dir.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/lumvane-bench-XXXXXX";
    if (!mkdtemp(dir.data())) {
      std::perror("journal_read_bench: mkdtemp");
      return 1;
    }
  } else {
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) {
      std::fprintf(stderr, "journal_read_bench: cannot make %s: %s\n", dir.c_str(),
                   ec.message().c_str());
      return 1;
    }
  }
  int status = 0;
  if (only.empty() || only == "journal") status |= JournalPart(dir, signposts, repeat);
  if (only.empty() || only == "json") status |= JsonPart(dir, lines, repeat);
  if (only.empty() || only == "open") status |= OpenPart(dir, 200000);
  if (data.empty()) {
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  }
  return status;
}
