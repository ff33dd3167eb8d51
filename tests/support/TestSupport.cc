#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "lumvane/filter/LVLog.h"

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

ScopedInternalDiagnostics::ScopedInternalDiagnostics(bool answer)
    : fake_(std::make_shared<FakeInternalDiagnosticsCheck>(answer)),
      previous_(ExchangeInternalDiagnosticsCheck(fake_)) {}

ScopedInternalDiagnostics::~ScopedInternalDiagnostics() {
  ExchangeInternalDiagnosticsCheck(previous_);
}

}  // namespace lumvane::testing
