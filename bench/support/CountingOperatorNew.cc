// Replaces the program's operator new and delete with ones that count every
// allocation in AllocationCount(), but those of threads taken out of the
// count. Linked as an object library, never from an archive: an archive
// member defining operator new would be pulled into every program linking
// the archive and count there too. Kept out of line, so that the compiler
// sees plain operator new and delete pairs.
#include <cstdlib>
#include <new>

#include "bench/support/AllocationCount.h"

using lumvane::bench::gAllocationCount;
using lumvane::bench::tAllocationsUncounted;

[[gnu::noinline]] void* operator new(std::size_t size) {
  if (!tAllocationsUncounted) gAllocationCount.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t align) {
  if (!tAllocationsUncounted) gAllocationCount.fetch_add(1, std::memory_order_relaxed);
  const size_t a = static_cast<size_t>(align);
  if (void* p = std::aligned_alloc(a, (size + a - 1) / a * a)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
  std::free(p);
}
