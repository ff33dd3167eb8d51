// A scheduler for one run on demand, in the foreground: the `lumvane run`
// command hands its activity exactly one call in the run state, on the
// calling thread. Deferral works as under the daemon's scheduler (the defer
// file in the state directory asks for it, and a defer is then accepted), so
// that an operator's request to give way is honoured by the command too.
// Transactions and exitWhenClean have nothing to keep alive or end: the
// command exits when its run is over.
#pragma once

#include <atomic>
#include <string>

#include "lumvane/platform/ActivityScheduler.h"

namespace lumvane {

class ForegroundActivityScheduler final : public ActivityScheduler {
 public:
  explicit ForegroundActivityScheduler(std::string stateDirectory);

  // Calls the registered handler once in the run state, on this thread.
  // False when nothing is registered.
  bool runOnce();
  // Whether the call of runOnce gave way to a deferral.
  bool deferred() const { return deferred_.load(); }
  std::string deferFilePath() const { return stateDirectory_ + "/defer"; }

  void registerActivity(const std::string& identifier, ActivityCriteria criteria,
                        Handler handler) override;
  ActivityState activityState(const Activity& activity) override;
  bool shouldDefer(const Activity& activity) override;
  bool setActivityState(const Activity& activity, ActivityState state) override;
  std::unique_ptr<Transaction> beginTransaction(const std::string& name) override;
  void exitWhenClean() override {}

 private:
  const std::string stateDirectory_;
  std::shared_ptr<Activity> activity_;
  Handler handler_;
  std::atomic<bool> deferred_{false};
};

}  // namespace lumvane
