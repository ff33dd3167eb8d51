// Records go from the reading thread to the decoding thread as raw bytes in
// batches: a record taken back must leave nothing behind, and long values
// must arrive whole, in order, whatever batch boundary they cross.
#include "lumvane/signpost/SignpostRecordBatch.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lumvane/signpost/JournalEntryText.h"
#include "lumvane/signpost/LogStoreExtractor.h"
#include "tests/support/JournalFiles.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

std::string Shown(std::string_view v) {
  return v.size() > 16 ? "#" + std::to_string(v.size()) + v.front() : std::string(v);
}

// Per record "index:value" per field, then "~item" per item; long values
// as "#size<first char>".
std::vector<std::string> Render(const SignpostRecordBatch& b) {
  std::vector<std::string> out;
  for (size_t i = 0; i < b.size(); ++i) {
    const SignpostRecordBatch::Record& r = b.record(i);
    std::string text;
    for (size_t k = 0; k < r.fieldCount; ++k) {
      const SignpostRecordBatch::Field& f = b.field(r, k);
      text += (text.empty() ? "" : ",") + std::to_string(f.index) + ":" + Shown(b.value(f));
    }
    std::string_view item;
    for (size_t at = r.firstItemByte; b.nextItem(r, &at, &item);) {
      text += (text.empty() ? "~" : ",~") + Shown(item);
    }
    out.push_back(text);
  }
  return out;
}

TEST(SignpostRecordBatchTest, ATakenBackRecordLeavesNothingBehind) {
  // "s" starts a record, "aINDEX:VALUE" adds a field and "iITEM" an item
  // ("*" for a value past what a batch keeps after clear()), "d" drops the
  // last record, "c" clears.
  const std::string big(5 << 20, 'z');
  const struct {
    const char* name;
    std::vector<std::string> ops;
    std::vector<std::string> expected;
  } kCases[] = {
      {"last of three", {"s", "a1:a", "s", "a2:bb", "s", "a3:c", "d"}, {"1:a", "2:bb"}},
      {"one without fields", {"s", "a1:x", "s", "d", "s", "a2:y"}, {"1:x", "2:y"}},
      {"after the buffer grew", {"s", "a1:first", "s", "a2:two", "a2:*", "d", "s", "a3:after"},
       {"1:first", "3:after"}},
      {"items", {"s", "iA=1", "s", "iB=2", "i*", "d", "s", "a4:x", "iC=3", "iD="},
       {"~A=1", "4:x,~C=3,~D="}},
      {"repeated field", {"s", "a5:p", "a5:q"}, {"5:p,5:q"}},
      {"reused after a giant record", {"s", "a1:*", "i*", "c", "s", "a2:small"}, {"2:small"}},
  };
  for (const auto& c : kCases) {
    SignpostRecordBatch batch;
    for (const std::string& op : c.ops) {
      if (op == "s") batch.startRecord();
      if (op == "d") batch.dropRecord();
      if (op == "c") batch.clear();
      if (op[0] == 'i') batch.addItem(op == "i*" ? big : op.substr(1));
      if (op[0] != 'a') continue;
      const std::string value = op.substr(op.find(':') + 1);
      batch.addField(std::stoi(op.substr(1)), value == "*" ? big : value);
    }
    EXPECT_EQ(Render(batch), c.expected) << c.name;
  }
}

// Values near the longest that is read fill a batch in two or three
// entries; a longer value of a field the reader does not need is passed
// over without spoiling its entry.
TEST(SignpostRecordBatchTest, LongJournalValuesArriveWholeAndInOrder) {
  LUMVANE_SKIP_WITHOUT_JOURNAL_REMOTE();
  const struct {
    size_t size;
    char fill;
    size_t otherFieldSize;
  } kEntries[] = {{700000, 'a', 0}, {1, 'b', 2 << 20}, {900000, 'c', 0},
                  {1 << 20, 'd', 0}, {1, 'e', 0},     {600000, 'f', 5000}};
  std::string exportText;
  std::vector<std::string> expected;
  uint64_t usec = 1714557600000000;
  for (const auto& e : kEntries) {
    JournalEntryText t;
    t.add("__REALTIME_TIMESTAMP", std::to_string(usec += 1000));
    t.add("_PID", "42");
    t.add("MESSAGE_ID", "0c7e0296aa5f4fc7af2af7a970a22d31");
    if (e.otherFieldSize) t.add("MESSAGE", std::string(e.otherFieldSize, 'm'));
    for (const char* f : {"SIGNPOST_TYPE=event", "SIGNPOST_ID=1", "SIGNPOST_SCOPE=process",
                          "SIGNPOST_SUBSYSTEM=s", "SIGNPOST_CATEGORY=c",
                          "SIGNPOST_STRING1_NAME=Path"}) {
      const std::string_view field(f);
      t.add(field.substr(0, field.find('=')), field.substr(field.find('=') + 1));
    }
    t.add("SIGNPOST_STRING1_VALUE", std::string(e.size, e.fill));
    t.appendExport(&exportText);
    expected.push_back(std::to_string(e.size) + e.fill);
  }
  testing::TempDir dir;
  const std::string file = testing::MakeJournalFile(dir.path(), "long", exportText);
  ASSERT_FALSE(file.empty());

  LogStoreExtractor extractor;
  std::vector<std::string> seen;
  extractor.setEmitEventProcessingBlock([&](auto e) {
    const std::string& v = e->string1Value().value_or("?");
    const bool uniform = v.find_first_not_of(v.front()) == std::string::npos;
    seen.push_back(std::to_string(v.size()) + (uniform ? v.front() : '!'));
    return true;
  });
  std::optional<Error> error;
  ASSERT_TRUE(extractor.processLogArchiveWithPath(
      file, Date{std::chrono::microseconds(usec - 3600000000)},
      Date{std::chrono::microseconds(usec)}, &error));
  EXPECT_EQ(seen, expected);
  EXPECT_EQ(extractor.lastReadStatistics().malformedRecords, 0u);
}

}  // namespace
}  // namespace lumvane
