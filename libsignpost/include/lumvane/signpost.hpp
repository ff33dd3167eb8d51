// C++ convenience over <lumvane/signpost.h>: an interval that ends when it
// goes out of scope. Header-only; links against liblumvane-signpost.
#pragma once

#include <lumvane/signpost.h>

#include <cstdint>
#include <utility>

namespace lumvane {

// Begins `signpost` with a fresh ID when constructed and ends it, with the
// arguments given to end() or none, when destroyed. The signpost and the
// strings it points to must outlive the object (a static const signpost per
// call site does). Move-only; a moved-from object ends nothing. Not for use
// by two threads at once; for thread scope, end on the thread that began.
class ScopedSignpost {
 public:
  explicit ScopedSignpost(const lumvane_signpost& signpost,
                          const lumvane_signpost_args* beginArgs = nullptr) noexcept
      : signpost_(&signpost), id_(lumvane_signpost_id_generate()) {
    beginResult_ = lumvane_signpost_begin(signpost_, id_, beginArgs);
  }
  ~ScopedSignpost() { end(); }

  ScopedSignpost(ScopedSignpost&& other) noexcept
      : signpost_(std::exchange(other.signpost_, nullptr)),
        id_(other.id_),
        beginResult_(other.beginResult_) {}
  ScopedSignpost& operator=(ScopedSignpost&& other) noexcept {
    if (this != &other) {
      end();
      signpost_ = std::exchange(other.signpost_, nullptr);
      id_ = other.id_;
      beginResult_ = other.beginResult_;
    }
    return *this;
  }
  ScopedSignpost(const ScopedSignpost&) = delete;
  ScopedSignpost& operator=(const ScopedSignpost&) = delete;

  std::uint64_t id() const noexcept { return id_; }
  // What lumvane_signpost_begin() returned: 0 or a negative errno.
  int beginResult() const noexcept { return beginResult_; }

  // Ends the interval now; the destructor then does nothing. Returns what
  // lumvane_signpost_end() returned, or 0 when it had ended already.
  int end(const lumvane_signpost_args* endArgs = nullptr) noexcept {
    if (signpost_ == nullptr) return 0;
    const lumvane_signpost* signpost = std::exchange(signpost_, nullptr);
    return lumvane_signpost_end(signpost, id_, endArgs);
  }

 private:
  const lumvane_signpost* signpost_;
  std::uint64_t id_;
  int beginResult_ = 0;
};

}  // namespace lumvane
