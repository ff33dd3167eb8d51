#include "tests/support/TestSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "lumvane/filter/LVLog.h"

extern char** environ;

namespace lumvane::testing {

ScopedLogCapture::ScopedLogCapture(LogLevel threshold)
    : recording_(std::make_shared<RecordingLogBackend>(threshold)),
      previous_(LVLog().exchangeBackend(recording_)) {}

ScopedLogCapture::~ScopedLogCapture() { LVLog().exchangeBackend(previous_); }

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string templ = std::string(base && *base ? base : "/tmp") + "/lumvane-test-XXXXXX";
  char* made = mkdtemp(templ.data());
  if (!made) ADD_FAILURE() << "mkdtemp failed for " << templ;
  path_ = templ;
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

void WriteFile(const std::string& path, const std::string& contents) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << contents;
  if (!out) ADD_FAILURE() << "cannot write " << path;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

bool PathExists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

ChildProcess::ChildProcess(std::vector<std::string> argv, const std::vector<std::string>& env,
                           const std::string& outputPrefix)
    : outPath_(outputPrefix + ".out"), errPath_(outputPrefix + ".err") {
  auto given = [&env](const std::string& entry) {
    const std::string name = entry.substr(0, entry.find('=') + 1);
    for (const std::string& e : env) {
      if (e.rfind(name, 0) == 0) return true;
    }
    return false;
  };
  std::vector<std::string> envStrings;
  for (char** e = environ; *e; ++e) {
    const std::string entry = *e;
    if (entry.rfind("LUMVANE_", 0) != 0 && !given(entry)) envStrings.push_back(entry);
  }
  envStrings.insert(envStrings.end(), env.begin(), env.end());
  // Everything the child needs is made before fork: only async-signal-safe
  // calls happen between fork and exec.
  std::vector<char*> args, envp;
  for (auto& s : argv) args.push_back(s.data());
  args.push_back(nullptr);
  for (auto& s : envStrings) envp.push_back(s.data());
  envp.push_back(nullptr);
  pid_ = ::fork();
  if (pid_ == 0) {
    int out = ::open(outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err = ::open(errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (out < 0 || err < 0) ::_exit(126);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(err, STDERR_FILENO);
    ::execve(args[0], args.data(), envp.data());
    ::_exit(127);
  }
  if (pid_ < 0) ADD_FAILURE() << "fork failed for " << argv[0];
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0 && !reaped(false)) {
    ::kill(pid_, SIGKILL);
    reaped(true);
  }
}

bool ChildProcess::reaped(bool block) {
  int status;
  if (!status_ && ::waitpid(pid_, &status, block ? 0 : WNOHANG) == pid_) status_ = status;
  return status_.has_value();
}

std::optional<int> ChildProcess::wait(std::chrono::milliseconds limit) {
  if (pid_ <= 0) return std::nullopt;
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!reaped(false)) {
    if (std::chrono::steady_clock::now() >= deadline) {
      ::kill(pid_, SIGKILL);
      reaped(true);
      return std::nullopt;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (!WIFEXITED(*status_)) return std::nullopt;
  return WEXITSTATUS(*status_);
}

bool ChildProcess::waitForError(const std::string& text, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    // Reaped first, read second: output written before the end is seen.
    bool ended = pid_ <= 0 || reaped(false);
    if (err().find(text) != std::string::npos) return true;
    if (ended || std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void ChildProcess::signal(int signo) {
  if (pid_ > 0 && !status_) ::kill(pid_, signo);
}

ScopedInternalDiagnostics::ScopedInternalDiagnostics(bool answer)
    : fake_(std::make_shared<FakeInternalDiagnosticsCheck>(answer)),
      previous_(ExchangeInternalDiagnosticsCheck(fake_)) {}

ScopedInternalDiagnostics::~ScopedInternalDiagnostics() {
  ExchangeInternalDiagnosticsCheck(previous_);
}

ScopedEnv::ScopedEnv(const char* name, const char* value) : name_(name) {
  if (const char* old = std::getenv(name)) old_ = old;
  value ? setenv(name, value, 1) : unsetenv(name);
}

ScopedEnv::~ScopedEnv() { old_ ? setenv(name_, old_->c_str(), 1) : unsetenv(name_); }

std::string DesktopEntry(const std::string& type) {
  return "# written by a test\n[Desktop Entry]\nType=" + type +
         "\nName=Test entry\nExec=true\n\n[Desktop Action extra]\nName=Extra\n";
}

}  // namespace lumvane::testing
