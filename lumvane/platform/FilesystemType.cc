#include "lumvane/platform/FilesystemType.h"

#include <sys/statfs.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <vector>

namespace lumvane {
namespace {

// The mount table writes space, tab, newline and backslash as \ooo.
std::string unescapeField(const std::string& field) {
  std::string out;
  out.reserve(field.size());
  for (size_t i = 0; i < field.size(); ++i) {
    bool octal = field[i] == '\\' && i + 3 < field.size();
    for (size_t k = 1; k <= 3 && octal; ++k) octal = field[i + k] >= '0' && field[i + k] <= '7';
    if (octal) {
      int v = (field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0');
      out.push_back(static_cast<char>(v & 0xff));
      i += 3;
      continue;
    }
    out.push_back(field[i]);
  }
  return out;
}

std::vector<std::string> splitSpaces(const std::string& line) {
  std::vector<std::string> fields;
  size_t pos = 0;
  while (pos < line.size()) {
    size_t end = line.find(' ', pos);
    if (end == std::string::npos) end = line.size();
    if (end > pos) fields.push_back(line.substr(pos, end - pos));
    pos = end + 1;
  }
  return fields;
}

}  // namespace

std::optional<Error> FilesystemTypeName(const std::string& mountPoint,
                                        const std::string& mountInfoPath,
                                        std::string* nameOut) {
  struct statfs st;
  std::memset(&st, 0, sizeof st);
  if (statfs(mountPoint.c_str(), &st) != 0) {
    return Error::fromErrno("statfs " + mountPoint, errno);
  }
  std::ifstream in(mountInfoPath);
  if (!in) return Error::fromErrno("cannot read " + mountInfoPath, errno);

  // Fields: id, parent id, major:minor, root, mount point, options, optional
  // fields..., "-", type, source, super options.
  std::optional<std::string> found;
  std::string line;
  while (std::getline(in, line)) {
    std::vector<std::string> fields = splitSpaces(line);
    if (fields.size() < 5 || unescapeField(fields[4]) != mountPoint) continue;
    for (size_t i = 5; i + 1 < fields.size(); ++i) {
      if (fields[i] == "-") {
        found = unescapeField(fields[i + 1]);
        break;
      }
    }
  }
  if (!found) return Error("no entry for " + mountPoint + " in " + mountInfoPath);
  *nameOut = std::move(*found);
  return std::nullopt;
}

}  // namespace lumvane
