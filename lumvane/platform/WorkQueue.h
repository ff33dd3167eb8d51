// A labelled serial work queue: work items run one at a time, in the order
// they were submitted, on the queue's own thread.
//
// Thread-safety: submit from any thread. Lifetime: the queue is shared
// (std::shared_ptr); when the last reference goes, the items already
// submitted still run, then the thread ends. sync() from the queue's own
// thread would wait for itself and is refused by an assertion.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace lumvane {

class WorkQueue {
 public:
  using Work = std::function<void()>;

  virtual ~WorkQueue() = default;
  virtual const std::string& label() const = 0;
  // Submits without waiting.
  virtual void async(Work work) = 0;
  // Submits and waits until the item has run; every item submitted before
  // it has run by then too.
  virtual void sync(Work work) = 0;
  // True when called from a work item of this queue.
  virtual bool isCurrent() const = 0;
};

std::shared_ptr<WorkQueue> NewSerialWorkQueue(std::string label);

}  // namespace lumvane
