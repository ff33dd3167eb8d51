#include "lumvane/platform/AssertionFailure.h"

#include <cstdio>
#include <cstdlib>

namespace lumvane {

void LVAssertionFailure(const char* function, const char* file, int line,
                        const char* expression) {
  // A single fprintf keeps the line whole even when other threads write to
  // stderr at the same time; null arguments must not turn the report into a
  // second fault.
  std::fprintf(stderr, "*** Assertion failure in %s, %s:%d: %s\n",
               function ? function : "(unknown function)", file ? file : "(unknown file)",
               line, expression ? expression : "(no expression)");
  std::fflush(stderr);
  std::abort();
}

}  // namespace lumvane
