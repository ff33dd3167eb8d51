// The open-begins part of journal_read_bench: memory under begins that
// never end. N begins (distinct signposts, each with every argument slot and
// two attributes filled) are read with the default cap on open begins, which
// must keep the whole process within 64 MB.
#pragma once

#include <cstdint>
#include <string>

namespace lumvane::bench {

// Makes the file under `dir` unless it is there from an earlier run, reads
// it once and prints what was kept and dropped and the peak memory. Answers
// the exit status.
int OpenPart(const std::string& dir, uint64_t begins);

}  // namespace lumvane::bench
