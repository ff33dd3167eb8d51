// Owns one file descriptor and closes it when it goes. Move-only; -1 means
// none. close(2) errors that matter (a write-back failure on some file
// systems) are the caller's to collect with close() before destruction.
#pragma once

#include <unistd.h>

#include <utility>

namespace lumvane {

class UniqueFd final {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  explicit operator bool() const { return valid(); }

  // Closes now and answers close(2)'s result (0 when there was nothing).
  int close() { return fd_ < 0 ? 0 : ::close(std::exchange(fd_, -1)); }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace lumvane
