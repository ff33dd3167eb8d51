// The telemetry service's configuration observer: after a delegate and a
// queue have been named, starting to observe a configuration type delivers
// that type's configuration to the delegate on the queue, asynchronously,
// and again whenever it changes.
//
// On this system a configuration is a JSON file,
// <DovetelDirectory()>/configurations/<type>.json (see JsonValue.h for how
// JSON maps to Value). A missing file means no delivery; a file that is not
// valid JSON, or anything but a regular file (a FIFO, a directory), is
// reported at error level with its path and the reason and delivers nothing;
// reading never blocks on a special file. The machine observer watches the directory with
// inotify on a thread of its own, which is stopped and joined when the
// observer is destroyed.
//
// Ownership: the observer holds the delegate and the queue strongly, and a
// delivery already queued holds the delegate, so a delivery that arrives after
// the observer's owner has moved on still reaches the delegate. Observers are
// shared (std::shared_ptr); create them through the factories below.
// Thread-safety: all operations may be called from any thread.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "lumvane/platform/DovetelConfigurationObserverDelegate.h"
#include "lumvane/platform/WorkQueue.h"

namespace lumvane {

class DovetelConfigurationObserver
    : public std::enable_shared_from_this<DovetelConfigurationObserver> {
 public:
  virtual ~DovetelConfigurationObserver() = default;

  // Names who receives configurations and on which queue. Deliveries made
  // before this is called are dropped.
  void setConfigurationObserverDelegate(
      std::shared_ptr<DovetelConfigurationObserverDelegate> delegate,
      std::shared_ptr<WorkQueue> queue);

  // Starts deliveries for `type`.
  virtual void startObservingConfigurationType(const std::string& type) = 0;

 protected:
  // Queues one call of the delegate with (configuration, type).
  void deliver(const std::optional<Value>& configuration, const std::string& type);
  // The queue named with the delegate, if any.
  std::shared_ptr<WorkQueue> deliveryQueue();

 private:
  std::mutex mu_;
  std::shared_ptr<DovetelConfigurationObserverDelegate> delegate_;
  std::shared_ptr<WorkQueue> queue_;
};

// The machine observer over DovetelDirectory() (read when observation starts).
std::shared_ptr<DovetelConfigurationObserver> NewDovetelConfigurationObserver();
// The machine observer over another telemetry-service directory.
std::shared_ptr<DovetelConfigurationObserver> NewDovetelConfigurationObserver(
    std::string dovetelDirectory);

}  // namespace lumvane
