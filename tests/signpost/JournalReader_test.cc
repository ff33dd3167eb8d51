// The journal source of the extractor over journal files that
// systemd-journal-remote makes from export-format text.
#include "lumvane/signpost/JournalReader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "lumvane/signpost/LogStoreExtractor.h"
#include "tests/support/JournalFiles.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

constexpr uint64_t kBaseUsec = 1714557600000000;
const Date kBase{std::chrono::microseconds(kBaseUsec)};

// One entry in export format, `at` seconds after kBase.
std::string Entry(int at, const std::string& fields, bool signpost = true) {
  return "__REALTIME_TIMESTAMP=" + std::to_string(kBaseUsec + at * 1000000ull) +
         "\n__MONOTONIC_TIMESTAMP=" + std::to_string(9000000000ull + at * 1000000ull) +
         "\n_BOOT_ID=5d1c0de5b0075a3e8e6f1a2b3c4d5e6f\n_PID=42\n_COMM=tool\n" +
         (signpost ? "MESSAGE_ID=0c7e0296aa5f4fc7af2af7a970a22d31\n" : "") +
         "SIGNPOST_SCOPE=process\nSIGNPOST_SUBSYSTEM=com.test\nSIGNPOST_CATEGORY=io\n" + fields +
         "\n";
}

TEST(JournalReaderTest, ReadsFromTheWindowStartToTheFirstEntryPastItsEnd) {
  LUMVANE_SKIP_WITHOUT_JOURNAL_REMOTE();
  testing::TempDir dir;
  const std::string machine = "0123456789abcdef0123456789abcdef";
  std::filesystem::create_directories(dir.file("journal/" + machine));
  const std::string file = testing::MakeJournalFile(
      dir.file("journal/" + machine), "system",
      Entry(-5, "SIGNPOST_TYPE=event\nSIGNPOST_ID=1\n") +
          Entry(1, "SIGNPOST_TYPE=begin\nSIGNPOST_ID=7\nSIGNPOST_BOOTTIME_NSEC=1000000000\n") +
          Entry(2, "SIGNPOST_TYPE=event\nSIGNPOST_ID=2\n", false) +  // another program's
          Entry(3, "SIGNPOST_TYPE=event\nSIGNPOST_ID=3\n") +
          Entry(4, "SIGNPOST_TYPE=end\nSIGNPOST_ID=7\nSIGNPOST_BOOTTIME_NSEC=3500000000\n") +
          Entry(5, "SIGNPOST_TYPE=bogus\nSIGNPOST_ID=8\n") +
          Entry(6, "SIGNPOST_TYPE=event\nSIGNPOST_ID=9\nSIGNPOST_NAME=" +
                       std::string(JournalReader::kMaxValueBytes + 1, 'n') + "\n") +
          Entry(20, "SIGNPOST_TYPE=event\nSIGNPOST_ID=4\n") +
          Entry(30, "SIGNPOST_TYPE=event\nSIGNPOST_ID=5\n"));
  ASSERT_FALSE(file.empty());
  std::filesystem::copy_file(file, dir.file("unnamed"));

  // The same entries as a journal directory with a machine-ID folder, as a
  // .journal file and as a file known only by its content.
  for (const std::string& store : {dir.file("journal"), file, dir.file("unnamed")}) {
    LogStoreExtractor extractor;
    std::vector<float> durations;
    std::vector<std::string> eventProcesses;
    extractor.setIntervalCompletionProcessingBlock(
        [&](auto i) { return durations.push_back(i->durationSeconds()), true; });
    extractor.setEmitEventProcessingBlock(
        [&](auto e) { return eventProcesses.push_back(e->processName().value_or("?")), true; });
    std::optional<Error> error;
    ASSERT_TRUE(extractor.processLogArchiveWithPath(store, kBase, kBase + std::chrono::seconds(10),
                                                    &error))
        << store << ": " << (error ? error->localizedDescription() : "");
    EXPECT_EQ(durations, std::vector<float>{2.5f}) << store;
    EXPECT_EQ(eventProcesses, std::vector<std::string>{"tool"}) << store;
    const LogStoreReadStatistics& s = extractor.lastReadStatistics();
    EXPECT_EQ(extractor.processedEventCount(), 5u) << store;  // 1, 3, 4, 5 and 6
    EXPECT_EQ(s.malformedRecords, 2u) << store;                // 5's type, 6's long name
    EXPECT_EQ(s.recordsOutsideWindow, 1u) << store;  // 20 ends the walk; -5 is sought past

    extractor.stopProcessing();
    ASSERT_TRUE(extractor.processLogArchiveWithPath(store, kBase, kBase + std::chrono::hours(1),
                                                    nullptr));
    EXPECT_EQ(extractor.processedEventCount(), 0u) << store;
  }
}

}  // namespace
}  // namespace lumvane
