#include "tests/support/platform/RecordingActivityScheduler.h"

namespace lumvane {

void RecordingActivityScheduler::setState(ActivityState state) {
  std::lock_guard<std::mutex> lock(mu_);
  state_ = state;
}

void RecordingActivityScheduler::setShouldDefer(bool answer) {
  std::lock_guard<std::mutex> lock(mu_);
  shouldDefer_ = answer;
}

void RecordingActivityScheduler::setAcceptsDefer(bool accepts) {
  std::lock_guard<std::mutex> lock(mu_);
  acceptsDefer_ = accepts;
}

bool RecordingActivityScheduler::deliver() {
  std::shared_ptr<Activity> activity;
  Handler handler;
  {
    std::lock_guard<std::mutex> lock(mu_);
    activity = activity_;
    handler = handler_;
  }
  if (!handler) return false;
  handler(std::move(activity));
  return true;
}

std::shared_ptr<Activity> RecordingActivityScheduler::activity() const {
  std::lock_guard<std::mutex> lock(mu_);
  return activity_;
}

std::vector<std::string> RecordingActivityScheduler::calls() const {
  std::lock_guard<std::mutex> lock(mu_);
  return calls_;
}

void RecordingActivityScheduler::clearCalls() {
  std::lock_guard<std::mutex> lock(mu_);
  calls_.clear();
}

void RecordingActivityScheduler::record(std::string call) {
  std::lock_guard<std::mutex> lock(mu_);
  calls_.push_back(std::move(call));
}

void RecordingActivityScheduler::registerActivity(const std::string& identifier,
                                                  ActivityCriteria, Handler handler) {
  std::lock_guard<std::mutex> lock(mu_);
  calls_.push_back("registerActivity:" + identifier);
  activity_ = std::make_shared<Activity>(identifier);
  handler_ = std::move(handler);
}

ActivityState RecordingActivityScheduler::activityState(const Activity&) {
  std::lock_guard<std::mutex> lock(mu_);
  calls_.push_back("activityState");
  return state_;
}

bool RecordingActivityScheduler::shouldDefer(const Activity&) {
  std::lock_guard<std::mutex> lock(mu_);
  calls_.push_back("shouldDefer");
  return shouldDefer_;
}

bool RecordingActivityScheduler::setActivityState(const Activity&, ActivityState state) {
  std::lock_guard<std::mutex> lock(mu_);
  calls_.push_back("setActivityState:" + std::to_string(state));
  if (!acceptsDefer_ && state == kActivityStateDefer) return false;
  state_ = state;
  return true;
}

std::unique_ptr<Transaction> RecordingActivityScheduler::beginTransaction(
    const std::string& name) {
  record("beginTransaction:" + name);
  return std::make_unique<Transaction>(name, [this, name] { record("endTransaction:" + name); });
}

void RecordingActivityScheduler::exitWhenClean() { record("exitWhenClean"); }

}  // namespace lumvane
