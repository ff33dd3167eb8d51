// liblumvane-signpost against a real journald of the test's own: what is sent
// is read back field by field with sd-journal.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

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

// The entry's fields as "FIELD=value", less those journald or libsystemd add and the two that vary
// from call to call.
std::multiset<std::string> Written(const JournalEntry& entry) {
  std::multiset<std::string> kept;
  for (const auto& [field, value] : entry)
    if (field[0] != '_' && field != "SYSLOG_IDENTIFIER" && field != "SIGNPOST_TID" &&
        field != "SIGNPOST_BOOTTIME_NSEC")
      kept.insert(field + "=" + value);
  return kept;
}

TEST(SignpostEmitter, EveryFieldReadsBackAsSent) {
  START_JOURNAL(journal, PrivateJournal::Options{});
  static const lumvane_signpost_attribute kAttributes[] = {
      {"mode", "fast\nslow"}, {"query", "a=b"}, {"empty", nullptr}};
  // Far more items and bytes than an everyday entry: 150 attributes of 100 characters.
  std::vector<std::pair<std::string, std::string>> texts(150);
  std::vector<lumvane_signpost_attribute> many;
  for (auto& [key, value] : texts) {
    key = "k" + std::to_string(many.size());
    value = std::string(100, char('a' + many.size() % 26));
    many.push_back({key.c_str(), value.c_str()});
  }
  const std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  lumvane_signpost_args every{}, doubles{}, behalf{};
  every.strings[0] = {"Host", "example.org"};
  every.strings[1] = {"Path", nullptr};
  every.numbers[0] = {"Small", LUMVANE_SIGNPOST_NUMBER_INT64, {.i = INT64_MIN}};
  every.numbers[1] = {"Big", LUMVANE_SIGNPOST_NUMBER_UINT64, {.u = kMax}};
  every.attributes = kAttributes;
  every.attribute_count = 3;
  doubles.numbers[0] = {"Whole", LUMVANE_SIGNPOST_NUMBER_DOUBLE, {.d = 3.0}};
  doubles.numbers[1] = {"Tenth", LUMVANE_SIGNPOST_NUMBER_DOUBLE, {.d = 0.1}};
  doubles.message = "custom line";
  behalf.numbers[0] = {"Neg", LUMVANE_SIGNPOST_NUMBER_DOUBLE, {.d = -0.0}};
  behalf.numbers[1] = {"Nan", LUMVANE_SIGNPOST_NUMBER_DOUBLE, {.d = std::nan("")}};
  behalf.attributes = many.data();
  behalf.attribute_count = many.size();
  behalf.message = "x";
  // Above any process ID the kernel gives, so journald has no OBJECT_* fields of its own to add.
  behalf.object_pid = 4194304;
  behalf.object_exe = "/opt/Tool.AppDir/tool";
  behalf.object_comm = "tool";
  static const lumvane_signpost fetch = {"org.example.app", "net", "fetch", LUMVANE_SIGNPOST_SCOPE_THREAD,
                                         LUMVANE_SIGNPOST_TELEMETRY | LUMVANE_SIGNPOST_ANIMATION},
                                net = {"org.example.app", "net", nullptr, LUMVANE_SIGNPOST_SCOPE_SYSTEM,
                                       LUMVANE_SIGNPOST_ANIMATION},
                                sub = {"sub", "cat", "", LUMVANE_SIGNPOST_SCOPE_PROCESS, 0};
  std::uint64_t before = BoottimeNsec();
  ASSERT_EQ(lumvane_signpost_begin(&fetch, kMax, &every), 0);
  ASSERT_EQ(lumvane_signpost_end(&net, 7, &doubles), 0);
  ASSERT_EQ(lumvane_signpost_event(&sub, 0, &behalf), 0);  // 0: the emitter chooses the ID
  std::uint64_t after = BoottimeNsec();

  auto entries = Signposts(journal);
  ASSERT_EQ(entries.size(), 3u) << journal.log();
  const std::string chosenId = Field(entries[2], "SIGNPOST_ID");
  EXPECT_NE(chosenId, "0");
  // Doubles keep a fraction or exponent, so 3.0 and -0.0 stay floats; animation is for begins only.
  std::multiset<std::string> expected[] = {
      {"MESSAGE=signpost begin org.example.app/net/fetch 18446744073709551615", "SIGNPOST_TYPE=begin",
       "SIGNPOST_ID=18446744073709551615", "SIGNPOST_SCOPE=thread", "SIGNPOST_SUBSYSTEM=org.example.app",
       "SIGNPOST_CATEGORY=net", "SIGNPOST_NAME=fetch", "SIGNPOST_TELEMETRY=1", "SIGNPOST_ANIMATION=1",
       "SIGNPOST_STRING1_NAME=Host", "SIGNPOST_STRING1_VALUE=example.org", "SIGNPOST_STRING2_NAME=Path",
       "SIGNPOST_STRING2_VALUE=", "SIGNPOST_NUMBER1_NAME=Small",
       "SIGNPOST_NUMBER1_VALUE=-9223372036854775808", "SIGNPOST_NUMBER2_NAME=Big",
       "SIGNPOST_NUMBER2_VALUE=18446744073709551615",
       "SIGNPOST_ATTRIBUTE=mode=fast\nslow", "SIGNPOST_ATTRIBUTE=query=a=b", "SIGNPOST_ATTRIBUTE=empty="},
      {"MESSAGE=custom line", "SIGNPOST_TYPE=end", "SIGNPOST_ID=7", "SIGNPOST_SCOPE=system",
       "SIGNPOST_SUBSYSTEM=org.example.app", "SIGNPOST_CATEGORY=net", "SIGNPOST_NUMBER1_NAME=Whole",
       "SIGNPOST_NUMBER1_VALUE=3.0", "SIGNPOST_NUMBER2_NAME=Tenth", "SIGNPOST_NUMBER2_VALUE=0.1"},
      {"MESSAGE=x", "SIGNPOST_TYPE=event", "SIGNPOST_ID=" + chosenId, "SIGNPOST_SCOPE=process",
       "SIGNPOST_SUBSYSTEM=sub", "SIGNPOST_CATEGORY=cat", "SIGNPOST_NUMBER1_NAME=Neg",
       "SIGNPOST_NUMBER1_VALUE=-0.0", "SIGNPOST_NUMBER2_NAME=Nan", "SIGNPOST_NUMBER2_VALUE=nan",
       "OBJECT_PID=4194304", "OBJECT_EXE=/opt/Tool.AppDir/tool", "OBJECT_COMM=tool"}};
  for (auto& [key, value] : texts) expected[2].insert("SIGNPOST_ATTRIBUTE=" + key + "=" + value);
  for (size_t i = 0; i < entries.size(); ++i) {
    SCOPED_TRACE(Field(entries[i], "SIGNPOST_TYPE"));
    expected[i].insert({"MESSAGE_ID=0c7e0296aa5f4fc7af2af7a970a22d31", "PRIORITY=6"});
    EXPECT_EQ(Written(entries[i]), expected[i]);
    EXPECT_EQ(Field(entries[i], "SIGNPOST_TID"), std::to_string(gettid()));
    std::uint64_t boottime = std::stoull(Field(entries[i], "SIGNPOST_BOOTTIME_NSEC"));
    EXPECT_GE(boottime, before);
    EXPECT_LE(boottime, after);
  }
}

// What each failure returns; nothing refused reaches the journal.
TEST(SignpostEmitter, RefusesBadInputAndReportsAJournalThatCannotTakeTheEntry) {
  START_JOURNAL(journal, PrivateJournal::Options{});
  static const lumvane_signpost_attribute kTwice[] = {{"k", "1"}, {"k", "2"}},
                                          kBad[] = {{"a=b", "1"}, {"", "1"}};
  using Tweak = void (*)(lumvane_signpost&, lumvane_signpost_args&);
  const auto kEvent = LUMVANE_SIGNPOST_EVENT;
  struct {
    const char* label;
    lumvane_signpost_type type;
    std::uint64_t id;
    Tweak tweak;
  } cases[] = {
      {"no subsystem", kEvent, 1, [](auto& s, auto&) { s.subsystem = nullptr; }},
      {"empty category", kEvent, 1, [](auto& s, auto&) { s.category = ""; }},
      {"unknown scope", kEvent, 1, [](auto& s, auto&) { s.scope = lumvane_signpost_scope(3); }},
      {"unknown type", lumvane_signpost_type(3), 1, [](auto&, auto&) {}},
      {"begin without ID", LUMVANE_SIGNPOST_BEGIN, 0, [](auto&, auto&) {}},
      {"end without ID", LUMVANE_SIGNPOST_END, 0, [](auto&, auto&) {}},
      {"number without name", kEvent, 1,
       [](auto&, auto& a) { a.numbers[0] = {nullptr, LUMVANE_SIGNPOST_NUMBER_INT64, {.i = 1}}; }},
      {"unknown number kind", kEvent, 1,
       [](auto&, auto& a) { a.numbers[1] = {"n", lumvane_signpost_number_kind(4), {.i = 1}}; }},
      {"key given twice", kEvent, 1, [](auto&, auto& a) { a.attributes = kTwice; a.attribute_count = 2; }},
      {"key with =", kEvent, 1, [](auto&, auto& a) { a.attributes = kBad; a.attribute_count = 1; }},
      {"empty key", kEvent, 1, [](auto&, auto& a) { a.attributes = kBad + 1; a.attribute_count = 1; }},
      {"attributes missing", kEvent, 1, [](auto&, auto& a) { a.attribute_count = 1; }},
      {"thread scope for another process", kEvent, 1,
       [](auto& s, auto& a) { s.scope = LUMVANE_SIGNPOST_SCOPE_THREAD; a.object_pid = 1; }},
      {"negative process", kEvent, 1, [](auto&, auto& a) { a.object_pid = -1; }},
  };
  const lumvane_signpost good = {"sub", "cat", nullptr, LUMVANE_SIGNPOST_SCOPE_PROCESS, 0};
  for (auto& c : cases) {
    lumvane_signpost signpost = good;
    lumvane_signpost_args args{};
    c.tweak(signpost, args);
    EXPECT_EQ(lumvane_signpost_emit(c.type, &signpost, c.id, &args), -EINVAL) << c.label;
  }
  EXPECT_EQ(lumvane_signpost_event(nullptr, 1, nullptr), -EINVAL);
  EXPECT_EQ(lumvane_signpost_journal_available(), 0);
  ASSERT_EQ(lumvane_signpost_event(&good, 1, nullptr), 0);
  EXPECT_EQ(Signposts(journal).size(), 1u);

  // A socket left behind by a journald that has gone; then none at all,
  // where libsystemd alone would answer success.
  journal.stop(false);
  EXPECT_EQ(lumvane_signpost_begin(&good, 5, nullptr), -ECONNREFUSED);
  journal.stop(true);
  EXPECT_EQ(lumvane_signpost_journal_available(), -ENOTCONN);
  EXPECT_EQ(lumvane_signpost_begin(&good, 5, nullptr), -ENOTCONN);
}

TEST(SignpostEmitter, ThreadsGetUniqueIdsAndTheirOwnTid) {
  START_JOURNAL(journal, (PrivateJournal::Options{false, true}));
  constexpr int kThreads = 8, kPerThread = 150;
  std::vector<pid_t> tids(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&tids, t] {
      tids[t] = gettid();
      std::string name = std::to_string(t);
      lumvane_signpost sp = {"sub", "cat", name.c_str(), LUMVANE_SIGNPOST_SCOPE_THREAD, 0};
      for (int i = 0; i < kPerThread; ++i)
        EXPECT_EQ(lumvane_signpost_begin(&sp, lumvane_signpost_id_generate(), nullptr), 0);
    });
  for (auto& thread : threads) thread.join();

  auto entries = Signposts(journal);
  ASSERT_EQ(entries.size(), size_t(kThreads * kPerThread)) << journal.log();
  std::set<std::string> ids;
  for (const auto& e : entries) {
    ids.insert(Field(e, "SIGNPOST_ID"));
    EXPECT_EQ(Field(e, "SIGNPOST_TID"), std::to_string(tids[std::stoi(Field(e, "SIGNPOST_NAME"))]));
  }
  EXPECT_EQ(ids.size(), entries.size());
}

TEST(SignpostEmitter, ForkedChildDrawsIdsApartFromItsParent) {
  lumvane_signpost_id_generate();  // the sequence exists before the fork
  constexpr int kCount = 64;
  std::uint64_t ids[kCount];
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    for (auto& id : ids) id = lumvane_signpost_id_generate();
    _exit(write(fds[1], ids, sizeof ids) == sizeof ids ? 0 : 1);
  }
  close(fds[1]);
  std::set<std::uint64_t> parent;
  for (int i = 0; i < kCount; ++i) parent.insert(lumvane_signpost_id_generate());
  ASSERT_EQ(read(fds[0], ids, sizeof ids), ssize_t(sizeof ids));
  close(fds[0]);
  waitpid(child, nullptr, 0);
  for (auto id : ids) EXPECT_EQ(parent.count(id), 0u) << id;
}

TEST(ScopedSignpost, EndsOnceWithTheBeginsId) {
  START_JOURNAL(journal, PrivateJournal::Options{});
  static const lumvane_signpost sp = {"sub", "cat", "scoped", LUMVANE_SIGNPOST_SCOPE_PROCESS, 0};
  std::string first, second;
  {
    ScopedSignpost a(sp);
    first = std::to_string(a.id());
    ScopedSignpost moved(std::move(a));  // a ends nothing now
    ScopedSignpost b(sp);
    second = std::to_string(b.id());
    EXPECT_EQ(b.end(), 0);  // the destructor then ends nothing
  }
  std::vector<std::string> seen;
  for (const auto& e : Signposts(journal))
    seen.push_back(Field(e, "SIGNPOST_TYPE") + " " + Field(e, "SIGNPOST_ID"));
  EXPECT_EQ(seen, (std::vector<std::string>{"begin " + first, "begin " + second, "end " + second,
                                            "end " + first}));
}

}  // namespace
}  // namespace lumvane::testing
