// Replays inputs through a fuzz target built with the ordinary compiler, so
// that the test suite runs every corpus entry: each argument is a file, or a
// directory whose regular files are replayed in name order. A crash or a
// sanitizer report fails the run; an unreadable path is an error.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

bool Replay(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "%s: cannot read\n", path.c_str());
    return false;
  }
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || std::string(argv[1]) == "--help") {
    std::fprintf(argc < 2 ? stderr : stdout,
                 "usage: %s PATH...\nReplays each file (or each file of each directory) "
                 "through the fuzz target.\n",
                 argv[0]);
    return argc < 2 ? 2 : 0;
  }
  size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    std::filesystem::path path(argv[i]);
    std::error_code ec;
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(path, ec)) {
      for (const auto& entry : std::filesystem::directory_iterator(path, ec)) {
        if (entry.is_regular_file()) files.push_back(entry.path());
      }
      if (ec) {
        std::fprintf(stderr, "%s: cannot list: %s\n", path.c_str(), ec.message().c_str());
        return 1;
      }
      std::sort(files.begin(), files.end());
    } else {
      files.push_back(path);
    }
    for (const auto& file : files) {
      if (!Replay(file)) return 1;
      ++replayed;
    }
  }
  std::printf("replayed %zu inputs\n", replayed);
  return replayed > 0 ? 0 : 1;
}
