// Open begins refer to the pass's shared strings instead of owning text: a
// begin must still meet only its own end, the texts an answer refers to must
// outlive every string the table lets go, and the shared strings must take
// their share of the cap on open begins.
#include "lumvane/signpost/SignpostPairingTable.h"

#include <gtest/gtest.h>

#include <string>

namespace lumvane {
namespace {

SignpostEntry Entry(SignpostEntry::Type type, std::string subsystem, std::string category,
                    std::optional<std::string> name, uint64_t realtimeUsec = 1000) {
  SignpostEntry e;
  e.type = type;
  e.signpostID = 7;
  e.subsystem = std::move(subsystem);
  e.category = std::move(category);
  e.name = std::move(name);
  e.bootID = "0123456789abcdef0123456789abcdef";
  e.pid = 42;
  e.tid = 43;
  e.processImagePath = "/usr/libexec/a-rather-long-helper-path";
  e.time.realtimeUsec = realtimeUsec;
  return e;
}

TEST(SignpostPairingTable, AnEndMeetsOnlyTheBeginOfItsOwnSignpost) {
  using T = SignpostEntry::Type;
  using S = SignpostEntry::Scope;
  const SignpostEntry begin = Entry(T::Begin, "org.example.viewer", "Load", "Page");
  struct Case {
    const char* what;
    void (*change)(SignpostEntry*);
    S scope;
    bool pairs;
    bool beginNamed = true;
  };
  const Case cases[] = {
      {"same signpost", [](SignpostEntry*) {}, S::Process, true},
      {"text moved between subsystem and category",
       [](SignpostEntry* e) { e->subsystem = "org.example.viewerL", e->category = "oad"; },
       S::Process, false},
      {"no name against a name", [](SignpostEntry* e) { e->name.reset(); }, S::Process, false},
      {"empty name against a name", [](SignpostEntry* e) { e->name = ""; }, S::Process, false},
      {"empty name against none", [](SignpostEntry* e) { e->name = ""; }, S::Process, false, false},
      {"no name against none", [](SignpostEntry* e) { e->name.reset(); }, S::Process, true, false},
      {"other signpost ID", [](SignpostEntry* e) { e->signpostID = 8; }, S::Process, false},
      {"other boot", [](SignpostEntry* e) { e->bootID[0] = 'f'; }, S::System, false},
      {"other process, process scope", [](SignpostEntry* e) { e->pid = 41; }, S::Process, false},
      {"other process, system scope", [](SignpostEntry* e) { e->pid = 41; }, S::System, true},
      {"other thread, process scope", [](SignpostEntry* e) { e->tid = 1; }, S::Process, true},
      {"other thread, thread scope", [](SignpostEntry* e) { e->tid = 1; }, S::Thread, false},
      {"other process image", [](SignpostEntry* e) { e->processImagePath.reset(); }, S::Process,
       true},
  };
  for (const Case& c : cases) {
    SignpostStringTable strings;
    SignpostPairingTable table(10, &strings);
    SignpostEntry b = begin;
    b.scope = c.scope;
    if (!c.beginNamed) b.name.reset();
    ASSERT_TRUE(table.open(b)) << c.what;
    SignpostEntry end = b;
    end.type = T::End;
    end.time.realtimeUsec = 2000;
    c.change(&end);
    const OpenSignpostInterval* open = table.close(end);
    EXPECT_EQ(open != nullptr, c.pairs) << c.what;
    EXPECT_EQ(table.openCount(), c.pairs ? 0u : 1u) << c.what;
    if (open) {
      EXPECT_EQ(*open->subsystem, "org.example.viewer") << c.what;
      EXPECT_EQ(open->name ? *open->name : "(none)", c.beginNamed ? "Page" : "(none)") << c.what;
      EXPECT_EQ(*open->processImagePath, "/usr/libexec/a-rather-long-helper-path") << c.what;
    }
  }
}

TEST(SignpostPairingTable, AClosedBeginKeepsItsTextsUntilTheNextCall) {
  SignpostStringTable strings;
  SignpostPairingTable table(10, &strings);
  const SignpostEntry begin =
      Entry(SignpostEntry::Type::Begin, std::string(40, 's'), std::string(30, 'c'), "N");
  ASSERT_TRUE(table.open(begin));
  SignpostEntry end = begin;
  end.type = SignpostEntry::Type::End;
  const OpenSignpostInterval* open = table.close(end);
  ASSERT_NE(open, nullptr);
  strings.trim();  // nothing the answer refers to may go
  EXPECT_EQ(*open->subsystem, std::string(40, 's'));
  EXPECT_EQ(*open->category, std::string(30, 'c'));
  // The next call lets the answer go; then nothing holds a string.
  EXPECT_EQ(table.close(end), nullptr);
  strings.trim();
  EXPECT_EQ(strings.size(), 0u);
  EXPECT_EQ(strings.bytes(), 0u);
}

TEST(SignpostPairingTable, SharedTextsCountTowardTheCap) {
  // Three begins fit a cap of 3 when their texts are small; with a
  // subsystem text worth two begins, the third one drops the earliest.
  for (const size_t textBytes : {size_t{20}, 2 * SignpostPairingTable::kOpenBeginBytes}) {
    SignpostStringTable strings;
    SignpostPairingTable table(3, &strings);
    for (uint64_t i = 0; i < 3; ++i) {
      SignpostEntry b = Entry(SignpostEntry::Type::Begin, std::string(textBytes, 'x'), "C",
                              std::nullopt, 1000 + i);
      b.signpostID = i;
      ASSERT_TRUE(table.open(b));
    }
    const bool large = textBytes > 100;
    EXPECT_EQ(table.openCount(), large ? 1u : 3u) << textBytes;
    EXPECT_EQ(table.droppedCount(), large ? 2u : 0u) << textBytes;
    table.clear();
    strings.trim();
    EXPECT_EQ(strings.bytes(), 0u) << textBytes;
  }
}

TEST(SignpostPairingTable, TheEarliestOpenBeginGoesAfterManyHaveClosed) {
  SignpostStringTable strings;
  SignpostPairingTable table(3, &strings);
  auto at = [](uint64_t id, uint64_t realtimeUsec) {
    SignpostEntry e = Entry(SignpostEntry::Type::Begin, "S", "C", std::nullopt, realtimeUsec);
    e.signpostID = id;
    return e;
  };
  // 200 begins that end at once, but for the last, which stays open.
  for (uint64_t i = 0; i < 200; ++i) {
    ASSERT_TRUE(table.open(at(i, 1000 + i)));
    if (i != 199) {
      ASSERT_NE(table.close(at(i, 0)), nullptr) << i;
    }
  }
  ASSERT_TRUE(table.open(at(1000, 5000)));
  ASSERT_TRUE(table.open(at(1001, 5001)));
  ASSERT_TRUE(table.open(at(1002, 5002)));  // full: #199 goes
  ASSERT_TRUE(table.open(at(1003, 900)));   // older than all open: itself dropped
  EXPECT_EQ(table.droppedCount(), 2u);
  EXPECT_EQ(table.close(at(199, 0)), nullptr);
  EXPECT_EQ(table.close(at(1003, 0)), nullptr);
  for (uint64_t id : {1000, 1001, 1002}) EXPECT_NE(table.close(at(id, 0)), nullptr) << id;
}

}  // namespace
}  // namespace lumvane
