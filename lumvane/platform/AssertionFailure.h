// The platform's report of a broken internal invariant: one line on standard
// error naming where the check failed, then the process ends abnormally
// (SIGABRT, so that a core dump or debugger sees the failure point).
// Reserved for programming errors that no input can reach.
#pragma once

namespace lumvane {

// Writes "PROGRAM: FILE:LINE: FUNCTION: Assertion 'EXPRESSION' failed." to
// stderr, the line the C library's assert(3) writes, and aborts. Safe to
// call from any thread; never returns.
[[noreturn]] void LVAssertionFailure(const char* function, const char* file, int line,
                                     const char* expression);

}  // namespace lumvane
