// Fuzz target of the log store reader: the input is the whole content of a
// store file, read through the extractor's public entry (a path), and every
// delivered object has its telemetry payload built. Nothing may crash, hang
// or trip a sanitizer, whatever the bytes.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "lumvane/signpost/LogStoreExtractor.h"
#include "lumvane/signpost/SignpostAnimationInterval.h"
#include "lumvane/signpost/SignpostEvent.h"
#include "lumvane/signpost/SignpostInterval.h"
#include "tests/fuzz/FuzzLogSink.h"

namespace {

// One file per process, rewritten for every input; removed at exit.
const std::string& StoreFile() {
  static const std::string path = [] {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/lumvane-fuzz-XXXXXX.ndjson";
    int fd = ::mkstemps(pattern.data(), 7);
    if (fd < 0) std::abort();
    ::close(fd);
    static std::string removeAtExit;
    removeAtExit = pattern;
    std::atexit([] { ::unlink(removeAtExit.c_str()); });
    return pattern;
  }();
  return path;
}

void WriteAll(const std::string& path, const uint8_t* data, size_t size) {
  int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (fd < 0) std::abort();
  while (size > 0) {
    ssize_t n = ::write(fd, data, size);
    if (n <= 0) std::abort();
    data += n;
    size -= static_cast<size_t>(n);
  }
  ::close(fd);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace lumvane;
  fuzz::DiscardLogs();
  WriteAll(StoreFile(), data, size);

  LogStoreExtractor extractor;
  auto build = [](const auto& object) {
    (void)object->dovetelPayload();
    return true;
  };
  extractor.setIntervalCompletionProcessingBlock(build);
  extractor.setAnimationIntervalCompletionProcessingBlock(build);
  extractor.setEmitEventProcessingBlock(build);
  // A window over every date a record could name.
  const Date start = Date(std::chrono::microseconds(0));
  const Date end = Date(std::chrono::microseconds(4'102'444'800'000'000));  // 2100-01-01
  std::optional<Error> error;
  (void)extractor.processLogArchiveWithPath(StoreFile(), start, end, &error);
  return 0;
}
