// The tasking gate: whether a reporting run may report at all. On an
// internal-diagnostics build the answer is always yes; elsewhere the daemon
// must have been tasked on by the telemetry service, which delivers the
// configuration "com.orvel.performance.lumvane_tasking", a dictionary whose
// "TaskedOn" number says yes (non-zero) or no.
//
// Every call asks afresh: it builds its own observer, delegate, observing
// queue and semaphore and waits at most 5 seconds for the first delivery; no
// delivery in time means no. A delivery that arrives after the wait only
// updates the call's shared verdict, which lives as long as the delegate.
// Each decision is written to LVLog at debug level.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "lumvane/platform/DovetelConfigurationObserver.h"

namespace lumvane {

constexpr const char* kTaskingConfigurationType = "com.orvel.performance.lumvane_tasking";
constexpr const char* kTaskedOnKey = "TaskedOn";
constexpr std::chrono::nanoseconds kTaskingConfigurationTimeout{5000000000};

using ConfigurationObserverFactory = std::function<std::shared_ptr<DovetelConfigurationObserver>()>;

// What the gate uses of the outside world; the defaults are the machine's.
struct TaskingGateOptions {
  ConfigurationObserverFactory makeObserver = [] { return NewDovetelConfigurationObserver(); };
  std::chrono::nanoseconds timeout = kTaskingConfigurationTimeout;
};

// Called once at the start of each reporting run, on the run's thread; may
// block it for up to the timeout.
bool shouldReportTelemetry();
bool shouldReportTelemetry(const TaskingGateOptions& options);

// The second stage of the gate: asks the telemetry service.
bool isTaskedOnByDovetel();
bool isTaskedOnByDovetel(const TaskingGateOptions& options);

}  // namespace lumvane
