// lumvane-signpost: marks one signpost in the systemd journal from a shell.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "SignpostCommandLine.h"

namespace {

// What /proc says of `pid`, or "" where it cannot be read (another user's
// process, or one that has gone).
std::string ProcessExe(pid_t pid) {
  std::string path = "/proc/" + std::to_string(pid) + "/exe";
  char target[PATH_MAX];
  ssize_t n = readlink(path.c_str(), target, sizeof target);
  return n > 0 && static_cast<size_t>(n) < sizeof target ? std::string(target, n) : std::string();
}

std::string ProcessComm(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/comm");
  std::string comm;
  std::getline(in, comm);
  return comm;
}

}  // namespace

int main(int argc, char* argv[]) {
  using lumvane::SignpostCommandLine;
  SignpostCommandLine line = SignpostCommandLine::Parse(argc, argv);
  if (line.helpRequested()) {
    std::fputs(SignpostCommandLine::Usage(), stdout);
    return 0;
  }
  if (!line.ok()) {
    std::fprintf(stderr, "lumvane-signpost: %s\nTry 'lumvane-signpost --help'.\n",
                 line.error().c_str());
    return 2;
  }
  std::string exe, comm;
  if (line.objectPid() != 0) {
    exe = ProcessExe(line.objectPid());
    comm = ProcessComm(line.objectPid());
  }
  std::uint64_t id = line.id() ? *line.id() : lumvane_signpost_id_generate();
  lumvane_signpost signpost = line.signpost();
  lumvane_signpost_args args = line.args(exe, comm);
  int r = lumvane_signpost_emit(line.type(), &signpost, id, &args);
  if (r == -ENOTCONN) {
    std::fprintf(stderr,
                 "lumvane-signpost: no journal at /run/systemd/journal/socket: the entry was not "
                 "stored\n");
    return 1;
  }
  if (r < 0) {
    std::fprintf(stderr, "lumvane-signpost: the journal did not take the entry: %s\n",
                 std::strerror(-r));
    return r == -EINVAL ? 2 : 1;
  }
  if (line.type() == LUMVANE_SIGNPOST_BEGIN && !line.id())
    std::printf("%llu\n", static_cast<unsigned long long>(id));
  return 0;
}
