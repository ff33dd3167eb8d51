// Helpers shared by the test binaries.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lumvane/platform/InternalDiagnostics.h"
#include "tests/support/platform/FakeInternalDiagnosticsCheck.h"
#include "tests/support/platform/RecordingLogBackend.h"

namespace lumvane::testing {

// Routes the process log handle (LVLog) into a recording backend for the
// lifetime of the object, then restores the previous backend.
class ScopedLogCapture final {
 public:
  explicit ScopedLogCapture(LogLevel threshold = LogLevel::Debug);
  ~ScopedLogCapture();
  ScopedLogCapture(const ScopedLogCapture&) = delete;
  ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;

  RecordingLogBackend& log() { return *recording_; }

 private:
  std::shared_ptr<RecordingLogBackend> recording_;
  std::shared_ptr<LogBackend> previous_;
};

// A fresh directory under $TMPDIR (or /tmp), removed with everything in it
// when the object goes.
class TempDir final {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Writes `contents` to `path`, replacing it; fails the current test on error.
void WriteFile(const std::string& path, const std::string& contents);
std::string ReadFile(const std::string& path);
// Whether anything, a dangling symbolic link included, is at `path`.
bool PathExists(const std::string& path);

// A program started in a child process with this process's environment less
// its LUMVANE_* variables and the variables `env` gives, plus `env`; its
// standard output and error go to
// the files `outputPrefix`.out and `outputPrefix`.err. A child still running
// when the object goes is killed. Use from the test's thread only.
class ChildProcess final {
 public:
  ChildProcess(std::vector<std::string> argv, const std::vector<std::string>& env,
               const std::string& outputPrefix);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // The exit status, or absent when the child ended by a signal or still ran
  // after `limit` (it is then killed).
  std::optional<int> wait(std::chrono::milliseconds limit);
  // Whether `text` showed on the standard error within `limit`; gives up as
  // soon as the child has ended without writing it.
  bool waitForError(const std::string& text, std::chrono::milliseconds limit);
  void signal(int signo);
  std::string out() const { return ReadFile(outPath_); }
  std::string err() const { return ReadFile(errPath_); }

 private:
  bool reaped(bool block);

  pid_t pid_ = -1;
  std::string outPath_, errPath_;
  std::optional<int> status_;
};

// Puts a FakeInternalDiagnosticsCheck answering `answer` in place of the
// process-wide internal-diagnostics check for the lifetime of the object,
// then restores the previous check.
class ScopedInternalDiagnostics final {
 public:
  explicit ScopedInternalDiagnostics(bool answer = false);
  ~ScopedInternalDiagnostics();
  ScopedInternalDiagnostics(const ScopedInternalDiagnostics&) = delete;
  ScopedInternalDiagnostics& operator=(const ScopedInternalDiagnostics&) = delete;

  FakeInternalDiagnosticsCheck& check() { return *fake_; }

 private:
  std::shared_ptr<FakeInternalDiagnosticsCheck> fake_;
  std::shared_ptr<InternalDiagnosticsCheck> previous_;
};

// Sets an environment variable (unsets it for nullptr) for the lifetime of
// the object, then puts back the value it had. The environment is process-
// wide: no other thread may read it while the object lives.
class ScopedEnv final {
 public:
  ScopedEnv(const char* name, const char* value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* name_;
  std::optional<std::string> old_;
};

// The text of a desktop entry whose [Desktop Entry] group has Type=`type`.
std::string DesktopEntry(const std::string& type);

}  // namespace lumvane::testing
