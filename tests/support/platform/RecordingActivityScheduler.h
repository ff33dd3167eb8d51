// Test double for the activity scheduler: a test sets the activity's state,
// the shouldDefer() answer and whether a defer request is accepted, calls
// the registered handler when it likes, and reads back every call in order:
//   "registerActivity:<identifier>", "activityState", "shouldDefer",
//   "setActivityState:<state>", "beginTransaction:<name>",
//   "endTransaction:<name>", "exitWhenClean".
// Thread-safe.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "lumvane/platform/ActivityScheduler.h"

namespace lumvane {

class RecordingActivityScheduler final : public ActivityScheduler {
 public:
  void setState(ActivityState state);
  void setShouldDefer(bool answer);
  void setAcceptsDefer(bool accepts);

  // Calls the registered handler with the activity, on the calling thread.
  // False when nothing is registered.
  bool deliver();
  // The handle given to the handler; absent before registration.
  std::shared_ptr<Activity> activity() const;
  std::vector<std::string> calls() const;
  void clearCalls();

  void registerActivity(const std::string& identifier, ActivityCriteria criteria,
                        Handler handler) override;
  ActivityState activityState(const Activity& activity) override;
  bool shouldDefer(const Activity& activity) override;
  bool setActivityState(const Activity& activity, ActivityState state) override;
  std::unique_ptr<Transaction> beginTransaction(const std::string& name) override;
  void exitWhenClean() override;

 private:
  void record(std::string call);

  mutable std::mutex mu_;
  std::vector<std::string> calls_;
  ActivityState state_ = kActivityStateCheckIn;
  bool shouldDefer_ = false;
  bool acceptsDefer_ = true;
  std::shared_ptr<Activity> activity_;
  Handler handler_;
};

}  // namespace lumvane
