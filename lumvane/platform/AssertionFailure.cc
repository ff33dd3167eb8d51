#include "lumvane/platform/AssertionFailure.h"

#include <errno.h>

#include <cstdio>
#include <cstdlib>

namespace lumvane {

void LVAssertionFailure(const char* function, const char* file, int line,
                        const char* expression) {
  // A single fprintf keeps the line whole even when other threads write to
  // stderr at the same time; null arguments must not turn the report into a
  // second fault.
  std::fprintf(stderr, "%s: %s:%d: %s: Assertion '%s' failed.\n", program_invocation_short_name,
               file ? file : "(unknown file)", line, function ? function : "(unknown function)",
               expression ? expression : "(no expression)");
  std::fflush(stderr);
  std::abort();
}

}  // namespace lumvane
