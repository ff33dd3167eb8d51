// The journal part of journal_read_bench: the signpost reader over journal
// files of a day with about N signpost entries and other programs' entries
// between them, made by systemd-journal-remote from the generator's export
// form. Baseline `journalctl -D DIR -o export MESSAGE_ID=<signpost ID>`
// writing to /dev/null, reported as journalctl's time over the reader's;
// beside it libsystemd's own walk over the same entries, the floor for a
// reader. Contenders alternate run by run; medians are compared.
#pragma once

#include <cstdint>
#include <string>

namespace lumvane::bench {

// Makes the files under `dir` unless they are there from an earlier run,
// times each contender `repeat` times and prints the figures. Answers the
// exit status: 0 also when the part is skipped for want of the programs.
int JournalPart(const std::string& dir, uint64_t signposts, uint64_t repeat);

}  // namespace lumvane::bench
