#include "lumvane/platform/LocalActivityScheduler.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace lumvane {
namespace {

// A hundred years: long enough for any schedule, short enough that a date
// plus it cannot overflow.
constexpr unsigned long long kMaxSeconds = 3'153'600'000ULL;

// The longest the scheduler's thread sleeps before looking at the wall clock
// again, so that a clock that is set forward is noticed.
constexpr std::chrono::seconds kLongestWait{60};

void ReportToStderr(const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); }

// Whole seconds 1..kMaxSeconds, digits only.
std::optional<unsigned long long> ParseSeconds(const char* text) {
  if (!text || !*text) return std::nullopt;
  for (const char* p = text; *p; ++p) {
    if (*p < '0' || *p > '9') return std::nullopt;
  }
  errno = 0;
  unsigned long long value = std::strtoull(text, nullptr, 10);
  if (errno != 0 || value == 0 || value > kMaxSeconds) return std::nullopt;
  return value;
}

std::chrono::seconds SecondsFromEnvironment(const std::function<const char*(const char*)>& getenv,
                                            const std::function<void(const std::string&)>& report,
                                            const char* name, std::chrono::seconds fallback) {
  const char* text = getenv(name);
  if (!text || !*text) return fallback;
  if (std::optional<unsigned long long> value = ParseSeconds(text)) {
    return std::chrono::seconds(static_cast<long long>(*value));
  }
  report(std::string("lumvane: ") + name + "=" + text +
         " is not a whole number of seconds from 1 to " + std::to_string(kMaxSeconds) +
         "; using " + std::to_string(fallback.count()));
  return fallback;
}

}  // namespace

LocalActivitySchedulerOptions LocalActivitySchedulerOptions::fromEnvironment(
    const std::function<const char*(const char*)>& getenvIn,
    const std::function<void(const std::string&)>& reportIn) {
  std::function<const char*(const char*)> getenv =
      getenvIn ? getenvIn : [](const char* name) -> const char* { return std::getenv(name); };
  std::function<void(const std::string&)> report = reportIn ? reportIn : ReportToStderr;
  LocalActivitySchedulerOptions options;
  if (const char* dir = getenv("LUMVANE_STATE_DIR"); dir && *dir) options.stateDirectory = dir;
  options.activityInterval = SecondsFromEnvironment(getenv, report, "LUMVANE_ACTIVITY_INTERVAL",
                                                    options.activityInterval);
  options.deferRetry =
      SecondsFromEnvironment(getenv, report, "LUMVANE_DEFER_RETRY", options.deferRetry);
  if (const char* exit = getenv("LUMVANE_EXIT_WHEN_CLEAN"); exit && *exit) {
    if (std::strcmp(exit, "1") == 0) {
      options.exitWhenCleanEndsProcess = true;
    } else if (std::strcmp(exit, "0") != 0) {
      report(std::string("lumvane: LUMVANE_EXIT_WHEN_CLEAN=") + exit +
             " is not one of 0, 1; using 0");
    }
  }
  options.report = report;
  return options;
}

LocalActivityScheduler::LocalActivityScheduler(LocalActivitySchedulerOptions options)
    : options_([&options] {
        if (!options.now) options.now = DateNow;
        if (!options.exitProcess) options.exitProcess = [](int status) { ::_exit(status); };
        if (!options.report) options.report = ReportToStderr;
        return std::move(options);
      }()) {}

LocalActivityScheduler::~LocalActivityScheduler() {
  {
    std::lock_guard<std::mutex> lock(mu_);
    stopping_ = true;
  }
  cv_.notify_all();
  if (thread_.joinable()) thread_.join();
}

std::string LocalActivityScheduler::lastRunRecordPath() const {
  return options_.stateDirectory + "/activity-last-run";
}

std::string LocalActivityScheduler::deferFilePath() const {
  return options_.stateDirectory + "/defer";
}

void LocalActivityScheduler::start() {
  std::lock_guard<std::mutex> lock(mu_);
  if (thread_.joinable() || stopping_) return;
  thread_ = std::thread([this] { threadLoop(); });
}

void LocalActivityScheduler::threadLoop() {
  pthread_setname_np(pthread_self(), "lumvane sched");
  for (;;) {
    runDueActivities();
    std::unique_lock<std::mutex> lock(mu_);
    if (stopping_) return;
    std::chrono::microseconds wait = kLongestWait;
    if (registration_) {
      if (registration_->checkInPending) continue;
      wait = std::min<std::chrono::microseconds>(
          wait, std::max<std::chrono::microseconds>(registration_->nextDue - options_.now(),
                                                    std::chrono::microseconds(0)));
    }
    cv_.wait_for(lock, wait, [this] { return stopping_ || woken_; });
    woken_ = false;
    if (stopping_) return;
  }
}

int LocalActivityScheduler::runDueActivities() {
  int calls = 0;
  bool checkIn = false;
  {
    std::lock_guard<std::mutex> lock(mu_);
    checkIn = registration_ && registration_->checkInPending;
  }
  if (checkIn) {
    deliver(kActivityStateCheckIn);
    ++calls;
  }
  bool due = false;
  {
    std::lock_guard<std::mutex> lock(mu_);
    due = registration_ && options_.now() >= registration_->nextDue;
  }
  if (due) {
    deliver(kActivityStateRun);
    ++calls;
  }
  bool endProcess = false;
  {
    std::lock_guard<std::mutex> lock(mu_);
    if (options_.exitWhenCleanEndsProcess && exitRequested_ && openTransactions_ == 0 &&
        !exitCalled_) {
      exitCalled_ = true;
      endProcess = true;
    }
  }
  if (endProcess) options_.exitProcess(0);
  return calls;
}

void LocalActivityScheduler::deliver(ActivityState state) {
  std::shared_ptr<Activity> activity;
  Handler handler;
  {
    std::lock_guard<std::mutex> lock(mu_);
    Registration& r = *registration_;
    if (state == kActivityStateCheckIn) r.checkInPending = false;
    r.state = state;
    r.running = state == kActivityStateRun;
    r.deferAccepted = false;
    activity = r.activity;
    handler = r.handler;
  }
  handler(std::move(activity));
  if (state != kActivityStateRun) return;

  Date now = options_.now();
  bool completed = false;
  {
    std::lock_guard<std::mutex> lock(mu_);
    Registration& r = *registration_;
    r.running = false;
    completed = !r.deferAccepted;
    r.nextDue = now + (completed ? options_.activityInterval : options_.deferRetry);
  }
  if (completed) {
    if (std::optional<Error> error = writeLastRun(now)) options_.report(error->description());
  }
}

void LocalActivityScheduler::registerActivity(const std::string& identifier, ActivityCriteria,
                                              Handler handler) {
  // Read before taking the lock: file I/O stays outside it.
  std::optional<Date> lastRun = readLastRun();
  {
    std::lock_guard<std::mutex> lock(mu_);
    if (registration_) {
      options_.report("lumvane: an activity is already registered; ignoring " + identifier);
      return;
    }
    Registration r;
    r.activity = std::make_shared<Activity>(identifier);
    r.handler = std::move(handler);
    r.nextDue = lastRun ? *lastRun + options_.activityInterval : options_.now();
    registration_ = std::move(r);
  }
  wake();
}

ActivityState LocalActivityScheduler::activityState(const Activity& activity) {
  std::lock_guard<std::mutex> lock(mu_);
  if (!registration_ || registration_->activity.get() != &activity) return -1;
  return registration_->state;
}

bool LocalActivityScheduler::shouldDefer(const Activity&) {
  struct stat st;
  return ::stat(deferFilePath().c_str(), &st) == 0;
}

bool LocalActivityScheduler::setActivityState(const Activity& activity, ActivityState state) {
  // Only the one change this scheduler knows is accepted: giving way during
  // a run while a deferral is asked for.
  if (state != kActivityStateDefer || !shouldDefer(activity)) return false;
  std::lock_guard<std::mutex> lock(mu_);
  if (!registration_ || registration_->activity.get() != &activity || !registration_->running) {
    return false;
  }
  registration_->deferAccepted = true;
  registration_->state = kActivityStateDefer;
  return true;
}

std::unique_ptr<Transaction> LocalActivityScheduler::beginTransaction(const std::string& name) {
  {
    std::lock_guard<std::mutex> lock(mu_);
    ++openTransactions_;
  }
  return std::make_unique<Transaction>(name, [this] { endTransaction(); });
}

void LocalActivityScheduler::endTransaction() {
  {
    std::lock_guard<std::mutex> lock(mu_);
    --openTransactions_;
  }
  wake();
}

void LocalActivityScheduler::exitWhenClean() {
  {
    std::lock_guard<std::mutex> lock(mu_);
    exitRequested_ = true;
  }
  wake();
}

std::optional<Date> LocalActivityScheduler::nextDueDate() const {
  std::lock_guard<std::mutex> lock(mu_);
  if (!registration_) return std::nullopt;
  return registration_->nextDue;
}

bool LocalActivityScheduler::isIdle() const {
  std::lock_guard<std::mutex> lock(mu_);
  return exitRequested_ && openTransactions_ == 0;
}

void LocalActivityScheduler::wake() {
  {
    std::lock_guard<std::mutex> lock(mu_);
    woken_ = true;
  }
  cv_.notify_all();
}

std::optional<Date> LocalActivityScheduler::readLastRun() const {
  const std::string path = lastRunRecordPath();
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    // No record: the activity has never completed a run here.
    if (errno != ENOENT) {
      options_.report(Error::fromErrno("lumvane: cannot read " + path, errno).description() +
                      "; the activity is due now");
    }
    return std::nullopt;
  }
  char buffer[32];
  ssize_t n = ::read(fd, buffer, sizeof buffer - 1);
  int err = errno;
  ::close(fd);
  if (n < 0) {
    options_.report(Error::fromErrno("lumvane: cannot read " + path, err).description() +
                    "; the activity is due now");
    return std::nullopt;
  }
  std::string text(buffer, static_cast<size_t>(n));
  if (!text.empty() && text.back() == '\n') text.pop_back();
  std::optional<unsigned long long> seconds = ParseSeconds(text.c_str());
  if (!seconds) {
    options_.report("lumvane: ignoring " + path +
                    ": not a time in whole seconds since the epoch; the activity is due now");
    return std::nullopt;
  }
  return Date(std::chrono::seconds(static_cast<long long>(*seconds)));
}

std::optional<Error> LocalActivityScheduler::writeLastRun(Date when) const {
  const std::string path = lastRunRecordPath();
  std::error_code ec;
  std::filesystem::create_directories(options_.stateDirectory, ec);
  if (ec) {
    return Error("lumvane: cannot create " + options_.stateDirectory + ": " + ec.message());
  }
  // Written beside the record and renamed over it, so that a reader never
  // meets half a record.
  const std::string temp = path + ".tmp";
  const long long seconds =
      std::chrono::duration_cast<std::chrono::seconds>(when.time_since_epoch()).count();
  const std::string text = std::to_string(seconds) + "\n";
  int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return Error::fromErrno("lumvane: cannot write " + temp, errno);
  ssize_t written = ::write(fd, text.data(), text.size());
  int err = written < 0 ? errno : ENOSPC;  // a short write of a few bytes means a full disk
  bool ok = written == static_cast<ssize_t>(text.size());
  if (ok && ::fsync(fd) != 0) {
    ok = false;
    err = errno;
  }
  ::close(fd);
  if (!ok) {
    ::unlink(temp.c_str());
    return Error::fromErrno("lumvane: cannot write " + temp, err);
  }
  if (::rename(temp.c_str(), path.c_str()) != 0) {
    err = errno;
    ::unlink(temp.c_str());
    return Error::fromErrno("lumvane: cannot rename " + temp + " to " + path, err);
  }
  return std::nullopt;
}

}  // namespace lumvane
