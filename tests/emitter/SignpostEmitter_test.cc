// liblumvane-signpost against a real journald of the test's own: what is sent
// is read back field by field with sd-journal.
#include <gtest/gtest.h>
#include <lumvane/signpost.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <limits>
#include <lumvane/signpost.hpp>
#include <set>
#include <thread>

#include "tests/emitter/JournalEntries.h"

namespace lumvane::testing {
namespace {

std::uint64_t BoottimeNsec() {
  timespec now;
  clock_gettime(CLOCK_BOOTTIME, &now);
  return std::uint64_t(now.tv_sec) * 1000000000u + std::uint64_t(now.tv_nsec);
}

// The fields the emitter writes (and CODE_*, which it must not), less those
// that vary from run to run and those journald adds for privileged senders.
JournalEntry Written(const JournalEntry& entry) {
  JournalEntry kept;
  for (const auto& [field, value] : entry) {
    bool ours = field.rfind("SIGNPOST_", 0) == 0 || field.rfind("MESSAGE", 0) == 0 ||
                field.rfind("CODE_", 0) == 0 || field == "PRIORITY" || field == "OBJECT_PID" ||
                field == "OBJECT_EXE" || field == "OBJECT_COMM";
    if (ours && field != "SIGNPOST_TID" && field != "SIGNPOST_BOOTTIME_NSEC")
      kept.emplace(field, value);
  }
  return kept;
}

const lumvane_signpost_attribute kAttributes[] = {
    {"mode", "fast\nslow"}, {"query", "a=b"}, {"empty", nullptr}};

const lumvane_signpost_attribute kTwice[] = {{"k", "1"}, {"k", "2"}};
const lumvane_signpost_attribute kWithEq[] = {{"a=b", "1"}};
const lumvane_signpost_attribute kEmptyKey[] = {{"", "1"}};

struct EmitCase {
  const char* label;
  lumvane_signpost_type type;
  lumvane_signpost signpost;
  std::uint64_t id;
  lumvane_signpost_args args;
  JournalEntry expected;  // SIGNPOST_ID left out when the emitter chose it
};

TEST(SignpostEmitter, EveryFieldReadsBackAsSent) {
  START_JOURNAL(journal, PrivateJournal::Options{});
  const std::uint64_t kMaxId = std::numeric_limits<std::uint64_t>::max();
  const std::string kMid = "0c7e0296aa5f4fc7af2af7a970a22d31";
  std::vector<EmitCase> cases = {
      {"begin with every argument",
       LUMVANE_SIGNPOST_BEGIN,
       {"org.example.app", "net", "fetch", LUMVANE_SIGNPOST_SCOPE_THREAD,
        LUMVANE_SIGNPOST_TELEMETRY | LUMVANE_SIGNPOST_ANIMATION},
       kMaxId,
       {{{"Host", "example.org"}, {"Path", nullptr}},
        {{"Small", LUMVANE_SIGNPOST_NUMBER_INT64, {.i = std::numeric_limits<std::int64_t>::min()}},
         {"Big", LUMVANE_SIGNPOST_NUMBER_UINT64, {.u = kMaxId}}},
        kAttributes,
        3,
        nullptr,
        0,
        nullptr,
        nullptr},
       {{"MESSAGE_ID", kMid},
        {"PRIORITY", "6"},
        {"MESSAGE", "signpost begin org.example.app/net/fetch 18446744073709551615"},
        {"SIGNPOST_TYPE", "begin"},
        {"SIGNPOST_ID", "18446744073709551615"},
        {"SIGNPOST_SCOPE", "thread"},
        {"SIGNPOST_SUBSYSTEM", "org.example.app"},
        {"SIGNPOST_CATEGORY", "net"},
        {"SIGNPOST_NAME", "fetch"},
        {"SIGNPOST_TELEMETRY", "1"},
        {"SIGNPOST_ANIMATION", "1"},
        {"SIGNPOST_STRING1_NAME", "Host"},
        {"SIGNPOST_STRING1_VALUE", "example.org"},
        {"SIGNPOST_STRING2_NAME", "Path"},
        {"SIGNPOST_STRING2_VALUE", ""},
        {"SIGNPOST_NUMBER1_NAME", "Small"},
        {"SIGNPOST_NUMBER1_VALUE", "-9223372036854775808"},
        {"SIGNPOST_NUMBER2_NAME", "Big"},
        {"SIGNPOST_NUMBER2_VALUE", "18446744073709551615"},
        {"SIGNPOST_ATTRIBUTE", "mode=fast\nslow"},
        {"SIGNPOST_ATTRIBUTE", "query=a=b"},
        {"SIGNPOST_ATTRIBUTE", "empty="}}},
      // Doubles keep a fraction or exponent, so 3.0 and -0.0 stay floats; an
      // animation flag is written on begins only.
      {"end with doubles",
       LUMVANE_SIGNPOST_END,
       {"org.example.app", "net", nullptr, LUMVANE_SIGNPOST_SCOPE_SYSTEM,
        LUMVANE_SIGNPOST_ANIMATION},
       7,
       {{},
        {{"Whole", LUMVANE_SIGNPOST_NUMBER_DOUBLE, {.d = 3.0}},
         {"Tenth", LUMVANE_SIGNPOST_NUMBER_DOUBLE, {.d = 0.1}}},
        nullptr,
        0,
        "custom line",
        0,
        nullptr,
        nullptr},
       {{"MESSAGE_ID", kMid},
        {"PRIORITY", "6"},
        {"MESSAGE", "custom line"},
        {"SIGNPOST_TYPE", "end"},
        {"SIGNPOST_ID", "7"},
        {"SIGNPOST_SCOPE", "system"},
        {"SIGNPOST_SUBSYSTEM", "org.example.app"},
        {"SIGNPOST_CATEGORY", "net"},
        {"SIGNPOST_NUMBER1_NAME", "Whole"},
        {"SIGNPOST_NUMBER1_VALUE", "3.0"},
        {"SIGNPOST_NUMBER2_NAME", "Tenth"},
        {"SIGNPOST_NUMBER2_VALUE", "0.1"}}},
      {"event on behalf of a process, emitter's ID",
       LUMVANE_SIGNPOST_EVENT,
       {"sub", "cat", "", LUMVANE_SIGNPOST_SCOPE_PROCESS, 0},
       0,
       {{},
        {{"Neg", LUMVANE_SIGNPOST_NUMBER_DOUBLE, {.d = -0.0}},
         {"Nan", LUMVANE_SIGNPOST_NUMBER_DOUBLE, {.d = std::nan("")}}},
        nullptr,
        0,
        "x",
        getpid(),
        "/opt/Tool.AppDir/tool",
        "tool"},
       {{"MESSAGE_ID", kMid},
        {"PRIORITY", "6"},
        {"MESSAGE", "x"},
        {"SIGNPOST_TYPE", "event"},
        {"SIGNPOST_SCOPE", "process"},
        {"SIGNPOST_SUBSYSTEM", "sub"},
        {"SIGNPOST_CATEGORY", "cat"},
        {"SIGNPOST_NUMBER1_NAME", "Neg"},
        {"SIGNPOST_NUMBER1_VALUE", "-0.0"},
        {"SIGNPOST_NUMBER2_NAME", "Nan"},
        {"SIGNPOST_NUMBER2_VALUE", "nan"},
        {"OBJECT_PID", std::to_string(getpid())},
        {"OBJECT_EXE", "/opt/Tool.AppDir/tool"},
        {"OBJECT_COMM", "tool"}}},
  };
  std::uint64_t before = BoottimeNsec();
  for (const auto& c : cases)
    ASSERT_EQ(lumvane_signpost_emit(c.type, &c.signpost, c.id, &c.args), 0) << c.label;
  std::uint64_t after = BoottimeNsec();
  ASSERT_EQ(journal.sync(), "");

  auto entries = ReadSignpostEntries(PrivateJournal::kDirectory);
  ASSERT_EQ(entries.size(), cases.size()) << journal.log();
  for (size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].label);
    JournalEntry written = Written(entries[i]);
    if (cases[i].id == 0) {
      EXPECT_NE(Field(written, "SIGNPOST_ID"), "0");
      written.erase("SIGNPOST_ID");
    }
    // journald adds its own OBJECT_EXE and OBJECT_COMM for privileged
    // senders: the given value must be one of those stored.
    for (const char* field : {"OBJECT_EXE", "OBJECT_COMM"}) {
      auto given = cases[i].expected.find(field);
      if (given == cases[i].expected.end()) continue;
      auto [from, to] = written.equal_range(field);
      EXPECT_NE(std::find(from, to, *given), to) << field;
      written.erase(field);
      written.insert(*given);
    }
    EXPECT_EQ(written, cases[i].expected);
    EXPECT_EQ(Field(entries[i], "SIGNPOST_TID"), std::to_string(gettid()));
    std::uint64_t boottime = std::stoull(Field(entries[i], "SIGNPOST_BOOTTIME_NSEC"));
    EXPECT_GE(boottime, before);
    EXPECT_LE(boottime, after);
  }
}

TEST(SignpostEmitter, LargeEntriesArriveWhole) {
  START_JOURNAL(journal, PrivateJournal::Options{});
  // Far more items and bytes than an everyday entry: 150 attributes of 100
  // characters each.
  std::vector<std::string> keys, values;
  std::multiset<std::string> expected;
  for (int i = 0; i < 150; ++i) {
    keys.push_back("k" + std::to_string(i));
    values.push_back(std::string(100, char('a' + i % 26)));
    expected.insert(keys.back() + "=" + values.back());
  }
  std::vector<lumvane_signpost_attribute> attributes;
  for (int i = 0; i < 150; ++i) attributes.push_back({keys[i].c_str(), values[i].c_str()});
  lumvane_signpost_args args{};
  args.attributes = attributes.data();
  args.attribute_count = attributes.size();
  const lumvane_signpost sp = {"sub", "cat", "big", LUMVANE_SIGNPOST_SCOPE_PROCESS, 0};
  ASSERT_EQ(lumvane_signpost_begin(&sp, 42, &args), 0);
  ASSERT_EQ(journal.sync(), "");

  auto entries = ReadSignpostEntries(PrivateJournal::kDirectory);
  ASSERT_EQ(entries.size(), 1u);
  std::multiset<std::string> stored;
  for (auto [it, end] = entries[0].equal_range("SIGNPOST_ATTRIBUTE"); it != end; ++it)
    stored.insert(it->second);
  EXPECT_EQ(stored, expected);
  EXPECT_EQ(Field(entries[0], "SIGNPOST_ID"), "42");
  EXPECT_EQ(Field(entries[0], "SIGNPOST_NAME"), "big");
}

TEST(SignpostEmitter, RefusesBadInputAndSendsNothing) {
  START_JOURNAL(journal, PrivateJournal::Options{});
  const lumvane_signpost good = {"sub", "cat", nullptr, LUMVANE_SIGNPOST_SCOPE_PROCESS, 0};
  using Tweak = void (*)(lumvane_signpost_args&);
  struct {
    const char* label;
    lumvane_signpost_type type;
    lumvane_signpost signpost;
    std::uint64_t id;
    Tweak tweak;
  } cases[] = {
      {"no subsystem",
       LUMVANE_SIGNPOST_EVENT,
       {nullptr, "cat", nullptr, LUMVANE_SIGNPOST_SCOPE_PROCESS, 0},
       1,
       nullptr},
      {"empty category",
       LUMVANE_SIGNPOST_EVENT,
       {"sub", "", nullptr, LUMVANE_SIGNPOST_SCOPE_PROCESS, 0},
       1,
       nullptr},
      {"unknown scope",
       LUMVANE_SIGNPOST_EVENT,
       {"sub", "cat", nullptr, lumvane_signpost_scope(3), 0},
       1,
       nullptr},
      {"unknown type", lumvane_signpost_type(3), good, 1, nullptr},
      {"begin without ID", LUMVANE_SIGNPOST_BEGIN, good, 0, nullptr},
      {"end without ID", LUMVANE_SIGNPOST_END, good, 0, nullptr},
      {"number without name", LUMVANE_SIGNPOST_EVENT, good, 1,
       [](lumvane_signpost_args& a) {
         a.numbers[0] = {nullptr, LUMVANE_SIGNPOST_NUMBER_INT64, {.i = 1}};
       }},
      {"unknown number kind", LUMVANE_SIGNPOST_EVENT, good, 1,
       [](lumvane_signpost_args& a) {
         a.numbers[1] = {"n", lumvane_signpost_number_kind(4), {.i = 1}};
       }},
      {"key given twice", LUMVANE_SIGNPOST_EVENT, good, 1,
       [](lumvane_signpost_args& a) {
         a.attributes = kTwice;
         a.attribute_count = 2;
       }},
      {"key with =", LUMVANE_SIGNPOST_EVENT, good, 1,
       [](lumvane_signpost_args& a) {
         a.attributes = kWithEq;
         a.attribute_count = 1;
       }},
      {"empty key", LUMVANE_SIGNPOST_EVENT, good, 1,
       [](lumvane_signpost_args& a) {
         a.attributes = kEmptyKey;
         a.attribute_count = 1;
       }},
      {"attributes missing", LUMVANE_SIGNPOST_EVENT, good, 1,
       [](lumvane_signpost_args& a) { a.attribute_count = 1; }},
      {"thread scope for another process",
       LUMVANE_SIGNPOST_EVENT,
       {"sub", "cat", nullptr, LUMVANE_SIGNPOST_SCOPE_THREAD, 0},
       1,
       [](lumvane_signpost_args& a) { a.object_pid = 1; }},
      {"negative process", LUMVANE_SIGNPOST_EVENT, good, 1,
       [](lumvane_signpost_args& a) { a.object_pid = -1; }},
  };
  for (auto& c : cases) {
    lumvane_signpost_args args{};
    if (c.tweak) c.tweak(args);
    EXPECT_EQ(lumvane_signpost_emit(c.type, &c.signpost, c.id, &args), -EINVAL) << c.label;
  }
  EXPECT_EQ(lumvane_signpost_event(nullptr, 1, nullptr), -EINVAL);
  ASSERT_EQ(lumvane_signpost_event(&good, 1, nullptr), 0);
  ASSERT_EQ(journal.sync(), "");
  EXPECT_EQ(ReadSignpostEntries(PrivateJournal::kDirectory).size(), 1u);
}

TEST(SignpostEmitter, ReportsAJournalThatCannotTakeTheEntry) {
  const lumvane_signpost sp = {"sub", "cat", nullptr, LUMVANE_SIGNPOST_SCOPE_SYSTEM, 0};
  {
    // No journald at all: libsystemd alone would answer success.
    START_JOURNAL(none, (PrivateJournal::Options{true, false}));
    (void)none;
    EXPECT_EQ(lumvane_signpost_journal_available(), -ENOTCONN);
    EXPECT_EQ(lumvane_signpost_begin(&sp, 5, nullptr), -ENOTCONN);
  }
  // A socket left behind by a journald that has gone.
  START_JOURNAL(stale, PrivateJournal::Options{});
  EXPECT_EQ(lumvane_signpost_journal_available(), 0);
  stale.stop(false);
  EXPECT_EQ(lumvane_signpost_begin(&sp, 5, nullptr), -ECONNREFUSED);
}

TEST(SignpostEmitter, ThreadsGetUniqueIdsAndTheirOwnTid) {
  START_JOURNAL(journal, (PrivateJournal::Options{false, true}));
  constexpr int kThreads = 8, kPerThread = 150;
  std::vector<std::thread> threads;
  std::vector<pid_t> tids(kThreads);
  std::vector<std::string> names;
  for (int t = 0; t < kThreads; ++t) names.push_back("t" + std::to_string(t));
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      tids[t] = gettid();
      lumvane_signpost sp = {"sub", "cat", names[t].c_str(), LUMVANE_SIGNPOST_SCOPE_THREAD, 0};
      for (int i = 0; i < kPerThread; ++i)
        EXPECT_EQ(lumvane_signpost_begin(&sp, lumvane_signpost_id_generate(), nullptr), 0);
    });
  for (auto& thread : threads) thread.join();
  ASSERT_EQ(journal.sync(), "");

  auto entries = ReadSignpostEntries(PrivateJournal::kDirectory);
  ASSERT_EQ(entries.size(), size_t(kThreads * kPerThread)) << journal.log();
  std::set<std::string> ids;
  for (const auto& e : entries) {
    ids.insert(Field(e, "SIGNPOST_ID"));
    int t = std::stoi(Field(e, "SIGNPOST_NAME").substr(1));
    EXPECT_EQ(Field(e, "SIGNPOST_TID"), std::to_string(tids[t]));
  }
  EXPECT_EQ(ids.size(), entries.size());
  EXPECT_EQ(ids.count("0"), 0u);
}

TEST(SignpostEmitter, ForkedChildDrawsIdsApartFromItsParent) {
  lumvane_signpost_id_generate();  // the sequence exists before the fork
  constexpr int kCount = 64;
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::uint64_t ids[kCount];
    for (auto& id : ids) id = lumvane_signpost_id_generate();
    _exit(write(fds[1], ids, sizeof ids) == sizeof ids ? 0 : 1);
  }
  close(fds[1]);
  std::set<std::uint64_t> parent;
  for (int i = 0; i < kCount; ++i) parent.insert(lumvane_signpost_id_generate());
  std::uint64_t ids[kCount];
  ASSERT_EQ(read(fds[0], ids, sizeof ids), ssize_t(sizeof ids));
  close(fds[0]);
  int status;
  waitpid(child, &status, 0);
  for (auto id : ids) EXPECT_EQ(parent.count(id), 0u) << id;
}

TEST(ScopedSignpost, EndsOnceWithTheBeginsId) {
  START_JOURNAL(journal, PrivateJournal::Options{});
  static const lumvane_signpost sp = {"sub", "cat", "scoped", LUMVANE_SIGNPOST_SCOPE_PROCESS, 0};
  std::uint64_t first, second;
  {
    ScopedSignpost a(sp);
    first = a.id();
    ScopedSignpost moved(std::move(a));  // a ends nothing now
    ScopedSignpost b(sp);
    second = b.id();
    EXPECT_EQ(b.end(), 0);  // the destructor then ends nothing
  }
  ASSERT_EQ(journal.sync(), "");
  auto entries = ReadSignpostEntries(PrivateJournal::kDirectory);
  std::vector<std::pair<std::string, std::string>> seen;
  for (const auto& e : entries)
    seen.emplace_back(Field(e, "SIGNPOST_TYPE"), Field(e, "SIGNPOST_ID"));
  std::vector<std::pair<std::string, std::string>> expected = {{"begin", std::to_string(first)},
                                                               {"begin", std::to_string(second)},
                                                               {"end", std::to_string(second)},
                                                               {"end", std::to_string(first)}};
  EXPECT_EQ(seen, expected);
}

}  // namespace
}  // namespace lumvane::testing
