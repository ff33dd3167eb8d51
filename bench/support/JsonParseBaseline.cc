#include "bench/support/JsonParseBaseline.h"

#include <fcntl.h>
#include <simdjson.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string_view>
#include <vector>

#include "bench/support/ResourceUsage.h"
#include "lumvane/signpost/SignpostStoreGenerator.h"

namespace lumvane::bench {

JsonParseRun RunJsonParseBaseline(const std::string& path) {
  static const char* const kWanted[] = {"MESSAGE_ID",
                                        "__REALTIME_TIMESTAMP",
                                        "__MONOTONIC_TIMESTAMP",
                                        "_BOOT_ID",
                                        "_PID",
                                        "_EXE",
                                        "_COMM",
                                        "OBJECT_PID",
                                        "OBJECT_EXE",
                                        "OBJECT_COMM",
                                        "SIGNPOST_TYPE",
                                        "SIGNPOST_ID",
                                        "SIGNPOST_SCOPE",
                                        "SIGNPOST_SUBSYSTEM",
                                        "SIGNPOST_CATEGORY",
                                        "SIGNPOST_NAME",
                                        "SIGNPOST_TELEMETRY",
                                        "SIGNPOST_ANIMATION",
                                        "SIGNPOST_STRING1_NAME",
                                        "SIGNPOST_STRING1_VALUE",
                                        "SIGNPOST_STRING2_NAME",
                                        "SIGNPOST_STRING2_VALUE",
                                        "SIGNPOST_NUMBER1_NAME",
                                        "SIGNPOST_NUMBER1_VALUE",
                                        "SIGNPOST_NUMBER2_NAME",
                                        "SIGNPOST_NUMBER2_VALUE",
                                        "SIGNPOST_ATTRIBUTE",
                                        "SIGNPOST_TID",
                                        "SIGNPOST_BOOTTIME_NSEC"};
  JsonParseRun r;
  const int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0) return r;
  constexpr size_t kBuffer = size_t{4} << 20;
  std::vector<char> buf(kBuffer + simdjson::SIMDJSON_PADDING);
  simdjson::ondemand::parser parser;
  size_t have = 0;
  const double cpu0 = CpuSeconds(RUSAGE_SELF);
  const auto t0 = std::chrono::steady_clock::now();
  for (;;) {
    const ssize_t n = read(fd, buf.data() + have, kBuffer - have);
    if (n < 0) break;
    have += static_cast<size_t>(n);
    size_t pos = 0;
    while (pos < have) {
      const char* nl = static_cast<const char*>(std::memchr(buf.data() + pos, '\n', have - pos));
      if (!nl && n > 0) break;  // wait for the rest of the line
      const size_t end = nl ? static_cast<size_t>(nl - buf.data()) : have;
      ++r.lines;
      simdjson::ondemand::document doc;
      simdjson::ondemand::object object;
      // The line is followed by readable bytes up to the padding.
      if (!parser.iterate(buf.data() + pos, end - pos, buf.size() - pos).get(doc) &&
          !doc.get_object().get(object)) {
        for (auto field : object) {
          std::string_view key;
          if (field.unescaped_key().get(key)) break;
          bool wanted = false;
          for (const char* w : kWanted) wanted = wanted || key == w;
          if (!wanted) continue;
          simdjson::ondemand::value v;
          if (field.value().get(v)) break;
          std::string_view s;
          if (!v.get_string().get(s)) {
            ++r.fieldsRead;
            r.signposts +=
                key == "MESSAGE_ID" && s == lumvane::SignpostStoreGenerator::kSignpostMessageId;
          } else {
            simdjson::ondemand::array a;
            if (!v.get_array().get(a)) {
              for (auto item : a) r.fieldsRead += !item.get_string().get(s);
            }
          }
        }
      }
      pos = end + 1;
    }
    if (n == 0) break;
    std::memmove(buf.data(), buf.data() + std::min(pos, have), have - std::min(pos, have));
    have -= std::min(pos, have);
  }
  r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  r.cpuSeconds = CpuSeconds(RUSAGE_SELF) - cpu0;
  close(fd);
  return r;
}

}  // namespace lumvane::bench
