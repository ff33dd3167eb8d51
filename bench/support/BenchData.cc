#include "bench/support/BenchData.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <vector>

namespace lumvane::bench {

void Warm(const std::string& path) {
  std::vector<std::string> files;
  if (std::filesystem::is_directory(path)) {
    for (const auto& e : std::filesystem::recursive_directory_iterator(path)) {
      if (e.is_regular_file()) files.push_back(e.path());
    }
  } else {
    files.push_back(path);
  }
  std::vector<char> buf(1 << 20);
  for (const std::string& file : files) {
    const int fd = open(file.c_str(), O_RDONLY);
    while (fd >= 0 && read(fd, buf.data(), buf.size()) > 0) {
    }
    if (fd >= 0) close(fd);
  }
}

bool LoadCounts(const std::string& path, uint64_t* a, uint64_t* b) {
  std::ifstream in(path);
  return static_cast<bool>(in >> *a >> *b);
}

void SaveCounts(const std::string& path, uint64_t a, uint64_t b) {
  std::ofstream(path) << a << ' ' << b << '\n';
}

}  // namespace lumvane::bench
