#include "bench/support/ProgramTimer.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "bench/support/ResourceUsage.h"

namespace lumvane::bench {

double TimeProgram(const std::vector<std::string>& argv, double* cpu) {
  const double cpu0 = CpuSeconds(RUSAGE_CHILDREN);
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  const auto t0 = std::chrono::steady_clock::now();
  const pid_t pid = fork();
  if (pid == 0) {
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    execv(args[0], args.data());
    _exit(127);
  }
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
  const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  *cpu = CpuSeconds(RUSAGE_CHILDREN) - cpu0;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? s : -1;
}

}  // namespace lumvane::bench
