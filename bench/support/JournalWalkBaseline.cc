#include "bench/support/JournalWalkBaseline.h"

#include <sys/resource.h>
#include <systemd/sd-journal.h>

#include <chrono>
#include <memory>

#include "bench/support/ResourceUsage.h"
#include "lumvane/signpost/SignpostStoreGenerator.h"

namespace lumvane::bench {

double TimeJournalWalk(const std::string& dir, uint64_t* entries, double* cpu) {
  const double cpu0 = CpuSeconds(RUSAGE_SELF);
  const auto t0 = std::chrono::steady_clock::now();
  sd_journal* opened = nullptr;
  if (sd_journal_open_directory(&opened, dir.c_str(), 0) < 0) return -1;
  const std::unique_ptr<sd_journal, decltype(&sd_journal_close)> journal(opened, &sd_journal_close);
  sd_journal* j = journal.get();
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
  const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  *cpu = CpuSeconds(RUSAGE_SELF) - cpu0;
  return bytes == 0 ? -1 : s;
}

}  // namespace lumvane::bench
