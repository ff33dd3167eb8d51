// Generated benchmark data on disk: big enough that making it costs more
// than reading it, so a data directory may be kept and reused between runs,
// with the counts the generator reported saved beside it; and read once
// before timing, so that every contender starts with it in the page cache.
#pragma once

#include <cstdint>
#include <string>

namespace lumvane::bench {

// Reads the file at `path`, or every regular file under it, once.
void Warm(const std::string& path);

// Two counts kept in a small text file beside generated data; LoadCounts
// answers false when the file is missing or unreadable, that is when the
// data must be made again.
bool LoadCounts(const std::string& path, uint64_t* a, uint64_t* b);
void SaveCounts(const std::string& path, uint64_t a, uint64_t b);

}  // namespace lumvane::bench
