// The JSON part of journal_read_bench: the signpost reader over one file of
// N JSON lines as journalctl prints them, against a bare single-threaded
// simdjson on-demand parse of the same fields, reported as the baseline's
// time over the reader's. Contenders alternate run by run; medians are
// compared.
#pragma once

#include <cstdint>
#include <string>

namespace lumvane::bench {

// Makes the file under `dir` unless it is there from an earlier run, times
// each contender `repeat` times and prints the figures. Answers the exit
// status.
int JsonPart(const std::string& dir, uint64_t lines, uint64_t repeat);

}  // namespace lumvane::bench
