#include "lumvane/platform/ForegroundActivityScheduler.h"

#include <sys/stat.h>

namespace lumvane {

ForegroundActivityScheduler::ForegroundActivityScheduler(std::string stateDirectory)
    : stateDirectory_(std::move(stateDirectory)) {}

void ForegroundActivityScheduler::registerActivity(const std::string& identifier,
                                                   ActivityCriteria, Handler handler) {
  activity_ = std::make_shared<Activity>(identifier);
  handler_ = std::move(handler);
}

bool ForegroundActivityScheduler::runOnce() {
  if (!handler_) return false;
  deferred_.store(false);
  handler_(activity_);
  return true;
}

ActivityState ForegroundActivityScheduler::activityState(const Activity&) {
  return kActivityStateRun;
}

bool ForegroundActivityScheduler::shouldDefer(const Activity&) {
  struct stat st;
  return ::stat(deferFilePath().c_str(), &st) == 0;
}

bool ForegroundActivityScheduler::setActivityState(const Activity& activity, ActivityState state) {
  if (state != kActivityStateDefer || !shouldDefer(activity)) return false;
  deferred_.store(true);
  return true;
}

std::unique_ptr<Transaction> ForegroundActivityScheduler::beginTransaction(
    const std::string& name) {
  return std::make_unique<Transaction>(name, nullptr);
}

}  // namespace lumvane
