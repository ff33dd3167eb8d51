// Times the signpost reader over both store forms against baselines
// measured in the same run over the same data, alternating the contenders
// run by run and reporting medians (the machine may be shared):
//  - journal files: the reader next to journalctl's export of the same
//    signposts and libsystemd's bare walk over them (JournalPart.h);
//  - JSON lines as journalctl prints them: the reader next to a bare
//    simdjson on-demand parse of the same fields (JsonPart.h);
//  - open begins: the peak memory under the cap on begins that never end
//    (OpenPart.h).
// For each reader run it reports the peak resident memory and the peak
// anonymous memory (VmRSS and RssAnon in /proc/self/status, sampled while
// it runs): mapped journal files count in the first, not in the second. It
// also splits the reader's CPU time between the calling thread (decoding,
// pairing, callbacks) and the reading thread: on a quiet machine the
// larger of the two bounds the reader's time.
// Beside the times it counts the heap allocations the reader makes per
// store record and per signpost (every operator new of the process while the
// reader runs, both of its threads, but the memory sampler's; libsystemd's
// own malloc calls are not counted).
// Generated data lives in a temporary directory that is removed at the end,
// or in --data DIR, where it is kept and reused by the next run.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "bench/journal_read/JournalPart.h"
#include "bench/journal_read/JsonPart.h"
#include "bench/journal_read/OpenPart.h"

namespace {

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

bool ParsePositive(const char* text, uint64_t* out) {
  char* end = nullptr;
  const unsigned long long v = std::strtoull(text, &end, 10);
  if (*text == '\0' || *end != '\0' || *text == '-' || v == 0) return false;
  *out = v;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  using lumvane::bench::JournalPart;
  using lumvane::bench::JsonPart;
  using lumvane::bench::OpenPart;
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
