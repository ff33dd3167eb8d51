#include "lumvane/signpost/SignpostStoreGenerator.h"

#include <cerrno>

#include "lumvane/signpost/SignpostStoreDay.h"

namespace lumvane {

SignpostStoreGenerator::SignpostStoreGenerator(SignpostStoreGeneratorOptions options)
    : options_(options) {}

std::optional<Error> SignpostStoreGenerator::writeTo(const std::string& path) {
  if (path == "-") return writeTo(stdout, "standard output");
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (!f) return Error::fromErrno("cannot create " + path, errno);
  std::optional<Error> error = writeTo(f, path);
  if (std::fclose(f) != 0 && !error) error = Error::fromErrno("cannot write " + path, errno);
  return error;
}

std::optional<Error> SignpostStoreGenerator::writeTo(std::FILE* stream, const std::string& name) {
  SignpostStoreDay day(options_, stream);
  errno = 0;
  day.run();
  bytes_ = day.bytes();
  counts_ = day.counts();
  const int err = errno ? errno : EIO;
  if (day.failed() || std::fflush(stream) != 0) {
    return Error::fromErrno("cannot write " + name, errno ? errno : err);
  }
  return std::nullopt;
}

}  // namespace lumvane
