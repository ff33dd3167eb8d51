#include "lumvane/telemetry/TaskingGate.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/support/TestSupport.h"
#include "tests/support/platform/ScriptedConfigurationObserver.h"

namespace lumvane {
namespace {

using Delivery = ScriptedConfigurationObserver::Delivery;
using std::chrono::milliseconds;

const std::string kType = kTaskingConfigurationType;
const std::string kTimeoutLine =
    "Not reporting based on not being tasked-on by Dovetel (Timeout waiting for config)";

class TaskingGateTest : public ::testing::Test {
 protected:
  // Runs the gate, with its default timeout, against an observer scripted with `deliveries`.
  bool runGate(std::vector<Delivery> deliveries, bool settle = false) {
    observer_ = std::make_shared<ScriptedConfigurationObserver>(std::move(deliveries), settle);
    TaskingGateOptions options;
    options.makeObserver = [this] {
      ++observersMade_;
      return observer_;
    };
    return shouldReportTelemetry(options);
  }

  testing::ScopedInternalDiagnostics diagnostics_{false};
  std::shared_ptr<ScriptedConfigurationObserver> observer_;
  int observersMade_ = 0;
  testing::ScopedLogCapture capture_;
};

TEST_F(TaskingGateTest, EachConfigurationOutcomeHasItsVerdictAndLine) {
  const std::string no = "Not reporting based on not being tasked-on by Dovetel ";
  const std::string yes = "Reporting based on being tasked-on by Dovetel", off = no + "('TaskedOn' is false)";
  auto tasked = [](Number n) { return Value(Dictionary{{"TaskedOn", n}}); };
  const Value on = tasked(Number::fromInt64(1)), zero = tasked(Number::fromInt64(0));
  const struct { std::vector<Delivery> deliveries; bool expected; std::vector<std::string> lines; } cases[] = {
      // A wrong type decides before the absent configuration is looked at.
      {{{std::nullopt, "com.orvel.other"}}, false, {no + "(unexpected type string: 'com.orvel.other')"}},
      {{{std::nullopt, kType}}, false, {no + "(nil configuration object)"}},
      {{{Value(Array{on}), kType}}, false, {no + "(Non-dictionary configuration object)"}},
      {{{Value(Dictionary{{"Tasked", Number::fromInt64(1)}}), kType}}, false,
       {"Not reporting since is not tasked-on by Dovetel (nil value for TaskedOn key)"}},
      {{{Value(Dictionary{{"TaskedOn", "1"}}), kType}}, false,
       {"Not reporting since not tasked-on by Dovetel (Wrong value class for class for TaskedOn)"}},
      {{{Value(Dictionary{{"Other", "x"}, {"TaskedOn", Number::fromUInt64(1)}}), kType}}, true, {yes}},
      {{{tasked(Number::fromDouble(0.5)), kType}}, true, {yes}},
      {{{tasked(Number::fromBool(false)), kType}}, false, {off}},
      // Of several deliveries made before the wait ends, the last one wins.
      {{{on, kType}, {zero, kType}}, false, {yes, off}},
      {{{zero, kType}, {on, kType}}, true, {off, yes}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.lines.back());
    capture_.log().clear();
    EXPECT_EQ(runGate(c.deliveries, c.deliveries.size() > 1), c.expected);
    EXPECT_EQ(capture_.log().messages(), c.lines);
    EXPECT_EQ(observer_->observedTypes(), std::vector<std::string>{kType});
  }
  EXPECT_EQ(observersMade_, static_cast<int>(std::size(cases)));
}

TEST_F(TaskingGateTest, InternalDiagnosticsAnswersYesWithoutAnObserver) {
  diagnostics_.check().setAnswer(true);
  EXPECT_TRUE(runGate({}));
  EXPECT_EQ(observersMade_, 0);
  EXPECT_EQ(diagnostics_.check().calls(), 1);
  EXPECT_EQ(capture_.log().messages(),
            std::vector<std::string>{"Reporting based on internal-diagnostics variant result"});
}

TEST_F(TaskingGateTest, SilentServiceTimesOutAfterFiveSecondsAndALateDeliveryChangesNothing) {
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(runGate({}));
  auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, milliseconds(5000));
  EXPECT_LT(waited, milliseconds(30000));
  EXPECT_EQ(capture_.log().messages(), std::vector<std::string>{kTimeoutLine});
  // The gate has let go of everything; the delivery still reaches the
  // delegate and its shared verdict (ASan watches the access).
  observer_->deliverNow(Value(Dictionary{{"TaskedOn", Number::fromInt64(1)}}), kType);
  observer_->settle();
  EXPECT_EQ(capture_.log().messages(),
            (std::vector<std::string>{kTimeoutLine, "Reporting based on being tasked-on by Dovetel"}));
}

}  // namespace
}  // namespace lumvane
