// Holds a process-wide object that is built once and never destroyed, so that
// threads still running while the process exits never meet a destroyed
// object. Use as a function-local static: its construction is thread-safe.
#pragma once

#include <new>
#include <type_traits>
#include <utility>

namespace lumvane {

template <typename T>
class NoDestructor final {
 public:
  template <typename... Args>
  explicit NoDestructor(Args&&... args) {
    ::new (static_cast<void*>(&storage_)) T(std::forward<Args>(args)...);
  }
  NoDestructor(const NoDestructor&) = delete;
  NoDestructor& operator=(const NoDestructor&) = delete;
  ~NoDestructor() = default;

  T* get() { return std::launder(reinterpret_cast<T*>(&storage_)); }
  T& operator*() { return *get(); }
  T* operator->() { return get(); }

 private:
  std::aligned_storage_t<sizeof(T), alignof(T)> storage_;
};

}  // namespace lumvane
