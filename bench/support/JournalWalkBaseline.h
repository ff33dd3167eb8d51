// The floor for a journal reader: libsystemd alone visiting every signpost
// entry of a directory of journal files with one data enumeration each,
// nothing decoded. A reader's time over it says what the reader adds to the
// walk it cannot avoid.
#pragma once

#include <cstdint>
#include <string>

namespace lumvane::bench {

// Walks the signpost entries of the journal files in `dir`; answers the wall
// seconds, or a negative number when the directory could not be opened or no
// data was read, the entries visited in *entries and the CPU seconds of this
// process meanwhile in *cpu.
double TimeJournalWalk(const std::string& dir, uint64_t* entries, double* cpu);

}  // namespace lumvane::bench
