// The activity scheduler of a Linux machine, configured by the environment of
// the process (its launch configuration):
//
//   LUMVANE_STATE_DIR          where the scheduler keeps its files
//                              (default /var/lib/lumvane)
//   LUMVANE_ACTIVITY_INTERVAL  seconds from one completed run to the next
//                              (default 86400)
//   LUMVANE_DEFER_RETRY        seconds after a deferral before the activity
//                              is due again (default 600)
//   LUMVANE_EXIT_WHEN_CLEAN    "1": exitWhenClean() ends the process once
//                              nothing is open (one-shot use under a service
//                              manager's timer); "0" (default): it only marks
//                              the process idle
//
// The activity checks in once when registered, and is due at once when no
// completed run is on record, else the interval after the last one. The wall
// time of the last completed run is kept in <state dir>/activity-last-run
// (whole seconds since the epoch), so a restart does not run again early.
// While the file <state dir>/defer exists, shouldDefer() answers true and a
// request for the defer state during a run is accepted. One activity per
// scheduler.
//
// Handler calls come one at a time, from the scheduler's own thread after
// start(), or from the caller of runDueActivities() in tests. When the
// process may end, it ends between two handler calls, never while a
// check-in or a due run is still to be delivered. Transactions must end
// before the scheduler is destroyed.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "lumvane/platform/ActivityScheduler.h"
#include "lumvane/platform/Date.h"
#include "lumvane/platform/Error.h"

namespace lumvane {

struct LocalActivitySchedulerOptions {
  std::string stateDirectory = "/var/lib/lumvane";
  std::chrono::seconds activityInterval{86400};
  std::chrono::seconds deferRetry{600};
  bool exitWhenCleanEndsProcess = false;
  // The wall clock that "due" and the record are measured on.
  std::function<Date()> now = DateNow;
  // Ends the process; _exit() unless a test records the call instead.
  std::function<void(int status)> exitProcess;
  // Where problems with the configuration or the state files are reported;
  // standard error unless replaced. Called with one line, no line feed.
  std::function<void(const std::string&)> report;

  // Reads the variables above through `getenv` (the process environment when
  // empty). A bad value is reported and the default used.
  static LocalActivitySchedulerOptions fromEnvironment(
      const std::function<const char*(const char*)>& getenv = {},
      const std::function<void(const std::string&)>& report = {});
};

class LocalActivityScheduler final : public ActivityScheduler {
 public:
  explicit LocalActivityScheduler(LocalActivitySchedulerOptions options);
  // Stops the scheduler's thread after the handler call under way, if any.
  ~LocalActivityScheduler() override;
  LocalActivityScheduler(const LocalActivityScheduler&) = delete;
  LocalActivityScheduler& operator=(const LocalActivityScheduler&) = delete;

  // Starts the scheduler's own thread. Once only.
  void start();

  // One step on the calling thread: the pending check-in, then the run when
  // it is due, then the end of the process when it may end. Returns how many
  // handler calls were made. For tests; not to be mixed with start().
  int runDueActivities();

  // When the registered activity is next due to run; absent before
  // registration.
  std::optional<Date> nextDueDate() const;
  // exitWhenClean() has been called and no transaction is open.
  bool isIdle() const;
  std::string lastRunRecordPath() const;
  std::string deferFilePath() const;

  void registerActivity(const std::string& identifier, ActivityCriteria criteria,
                        Handler handler) override;
  ActivityState activityState(const Activity& activity) override;
  bool shouldDefer(const Activity& activity) override;
  bool setActivityState(const Activity& activity, ActivityState state) override;
  std::unique_ptr<Transaction> beginTransaction(const std::string& name) override;
  void exitWhenClean() override;

 private:
  struct Registration {
    std::shared_ptr<Activity> activity;
    Handler handler;
    ActivityState state = kActivityStateCheckIn;
    bool checkInPending = true;
    bool running = false;        // a run call is under way
    bool deferAccepted = false;  // during this run call
    Date nextDue;
  };

  void deliver(ActivityState state);
  void endTransaction();
  void wake();
  void threadLoop();
  std::optional<Date> readLastRun() const;
  [[nodiscard]] std::optional<Error> writeLastRun(Date when) const;

  const LocalActivitySchedulerOptions options_;
  mutable std::mutex mu_;
  std::condition_variable cv_;
  std::optional<Registration> registration_;  // guarded by mu_
  int openTransactions_ = 0;                  // guarded by mu_
  bool exitRequested_ = false;                // guarded by mu_
  bool exitCalled_ = false;                   // guarded by mu_
  bool woken_ = false;                        // guarded by mu_
  bool stopping_ = false;                     // guarded by mu_
  std::thread thread_;
};

}  // namespace lumvane
