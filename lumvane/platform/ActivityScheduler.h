// The background-activity scheduler as the daemon uses it: it calls the
// daemon back when its one activity checks in and whenever the activity is
// due, keeps the process alive while a transaction is open, and ends it once
// the daemon says it may exit and nothing is open.
//
// Thread-safety: every operation may be called from any thread, also from
// within the activity handler. The handler runs on a thread of the
// scheduler's own, one call at a time.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace lumvane {

// Activity states, in the scheduler's own numbering.
using ActivityState = long;
inline constexpr ActivityState kActivityStateCheckIn = 0;
inline constexpr ActivityState kActivityStateRun = 2;
inline constexpr ActivityState kActivityStateDefer = 3;

// What the schedule of an activity is to be. The daemon carries no criteria
// of its own: it registers with the check-in marker, and the schedule comes
// from the launch configuration of the scheduler.
enum class ActivityCriteria { CheckIn };

// The handle of a registered activity, shared with its handler for the
// length of each call.
class Activity final {
 public:
  explicit Activity(std::string identifier) : identifier_(std::move(identifier)) {}
  const std::string& identifier() const { return identifier_; }

 private:
  const std::string identifier_;
};

// Keeps the process busy until it is destroyed.
class Transaction final {
 public:
  Transaction(std::string name, std::function<void()> onEnd)
      : name_(std::move(name)), onEnd_(std::move(onEnd)) {}
  ~Transaction() {
    if (onEnd_) onEnd_();
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  const std::string& name() const { return name_; }

 private:
  const std::string name_;
  const std::function<void()> onEnd_;
};

class ActivityScheduler {
 public:
  using Handler = std::function<void(std::shared_ptr<Activity>)>;

  virtual ~ActivityScheduler() = default;

  // Registers the activity; with the check-in marker the handler is first
  // called once in the check-in state, later in the run state when due.
  virtual void registerActivity(const std::string& identifier, ActivityCriteria criteria,
                                Handler handler) = 0;
  virtual ActivityState activityState(const Activity& activity) = 0;
  // True while the scheduler wants the activity to give way.
  virtual bool shouldDefer(const Activity& activity) = 0;
  // Asks for a state change; false when refused.
  virtual bool setActivityState(const Activity& activity, ActivityState state) = 0;
  virtual std::unique_ptr<Transaction> beginTransaction(const std::string& name) = 0;
  // The process may be ended as soon as no transaction is open.
  virtual void exitWhenClean() = 0;
};

}  // namespace lumvane
