#include "lumvane/platform/SignalSource.h"

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <mutex>
#include <thread>

namespace lumvane {
namespace {

class SignalfdSource final : public SignalSource {
 public:
  SignalfdSource(int signo, WorkQueue& queue, std::function<void()> handler, int signalFd,
                 int stopFd)
      : signo_(signo), queue_(queue), handler_(std::move(handler)), signalFd_(signalFd),
        stopFd_(stopFd) {}

  ~SignalfdSource() override {
    if (thread_.joinable()) {
      uint64_t one = 1;
      ssize_t w = ::write(stopFd_, &one, sizeof one);
      (void)w;  // an eventfd write of 1 cannot fail short of an overflow
      thread_.join();
    }
    ::close(signalFd_);
    ::close(stopFd_);
  }

  void resume() override {
    std::call_once(resumed_, [this] { thread_ = std::thread([this] { waitLoop(); }); });
  }

 private:
  void waitLoop() {
    pthread_setname_np(pthread_self(), "lumvane signal");
    for (;;) {
      struct pollfd fds[2] = {{signalFd_, POLLIN, 0}, {stopFd_, POLLIN, 0}};
      if (::poll(fds, 2, -1) < 0) {
        if (errno == EINTR) continue;
        return;
      }
      if (fds[1].revents != 0) return;
      if (fds[0].revents & POLLIN) {
        struct signalfd_siginfo info;
        if (::read(signalFd_, &info, sizeof info) == static_cast<ssize_t>(sizeof info) &&
            static_cast<int>(info.ssi_signo) == signo_) {
          queue_.async(handler_);
        }
      }
    }
  }

  const int signo_;
  WorkQueue& queue_;
  const std::function<void()> handler_;
  const int signalFd_;
  const int stopFd_;
  std::once_flag resumed_;
  std::thread thread_;
};

}  // namespace

void BlockSignalInProcess(int signo) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signo);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

std::unique_ptr<SignalSource> NewSignalSource(int signo, WorkQueue& queue,
                                              std::function<void()> handler,
                                              std::optional<Error>* errorOut) {
  BlockSignalInProcess(signo);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signo);
  int signalFd = ::signalfd(-1, &set, SFD_CLOEXEC);
  if (signalFd < 0) {
    if (errorOut) *errorOut = Error::fromErrno("cannot create a signal descriptor", errno);
    return nullptr;
  }
  int stopFd = ::eventfd(0, EFD_CLOEXEC);
  if (stopFd < 0) {
    if (errorOut) *errorOut = Error::fromErrno("cannot create an event descriptor", errno);
    ::close(signalFd);
    return nullptr;
  }
  return std::make_unique<SignalfdSource>(signo, queue, std::move(handler), signalFd, stopFd);
}

void ParkCallingThreadForever() {
  for (;;) ::pause();
}

}  // namespace lumvane
