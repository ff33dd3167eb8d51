#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

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
ScopedEnv::ScopedEnv(const char* name, const char* value) : name_(name) {
  if (const char* old = std::getenv(name)) old_ = old;
  value ? setenv(name, value, 1) : unsetenv(name);
}

ScopedEnv::~ScopedEnv() { old_ ? setenv(name_, old_->c_str(), 1) : unsetenv(name_); }

std::string BundlePropertyList(const std::string& identifier, bool binary) {
  plist_t dict = plist_new_dict();
  plist_dict_set_item(dict, "BundleIdentifier", plist_new_string(identifier.c_str()));
  char* data = nullptr;
  uint32_t length = 0;
  binary ? plist_to_bin(dict, &data, &length) : plist_to_xml(dict, &data, &length);
  std::string out(data, length);
  binary ? plist_to_bin_free(data) : plist_to_xml_free(data);
  plist_free(dict);
  return out;
}

}  // namespace lumvane::testing
