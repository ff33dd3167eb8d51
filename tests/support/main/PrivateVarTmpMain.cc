// main() of the test binaries whose tests take machine-wide paths (the run's
// guard file under /var/tmp) or start the programs that do. It moves the
// process into a private namespace before GoogleTest starts any thread; where
// the machine allows no namespace, every test is reported skipped, with the
// reason, before its fixture is even built, so none touches the machine's own
// files.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "tests/support/PrivateVarTmp.h"

namespace {

class SkipEveryTest final : public ::testing::EmptyTestEventListener {
 public:
  explicit SkipEveryTest(std::string reason) : reason_(std::move(reason)) {}

  // A skip recorded here, with the test already current, keeps GoogleTest
  // from constructing and running it.
  void OnTestStart(const ::testing::TestInfo&) override { Skip(); }

 private:
  void Skip() {
    GTEST_SKIP() << "no private /var/tmp for a test that takes machine-wide paths: " << reason_;
  }

  std::string reason_;
};

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  if (std::optional<std::string> error = lumvane::testing::EnterPrivateVarTmp()) {
    // The listener list takes ownership.
    ::testing::UnitTest::GetInstance()->listeners().Append(
        std::make_unique<SkipEveryTest>(*error).release());
  }
  return RUN_ALL_TESTS();
}
