// Times another program as a baseline contender: it runs with its standard
// output thrown away, as a reader's output would be, and its CPU time is
// read from this process's waited-for children.
#pragma once

#include <string>
#include <vector>

namespace lumvane::bench {

// Runs argv (argv[0] a path) with standard output to /dev/null and waits for
// it; answers its wall seconds, or a negative number when it could not run
// or did not exit 0, and its CPU seconds in *cpu. Not thread-safe against
// other children of this process being waited for meanwhile.
double TimeProgram(const std::vector<std::string>& argv, double* cpu);

}  // namespace lumvane::bench
