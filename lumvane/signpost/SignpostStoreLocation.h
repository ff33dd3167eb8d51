// Where a signpost store lives and in which form, told from a path the user
// gave (or none): the machine's own journal, a directory of journal files,
// one journal file, JSON lines as journalctl writes them (a file, a directory
// of *.json/*.ndjson files read in name order, or "-" for standard input).
// A file whose name does not end in ".journal" is recognised by its content:
// a journal file starts with the journal header's signature.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lumvane/platform/Error.h"

namespace lumvane {

struct SignpostStoreLocation {
  enum class Form { MachineJournal, JournalDirectory, JournalFile, JsonLines };

  Form form = Form::MachineJournal;
  std::string path;                // as given ("-" for standard input)
  std::vector<std::string> files;  // JsonLines: the files to read, in order

  // No path: the machine's journal. A path that cannot be examined, or a
  // directory holding both journal files and JSON files, is an error that
  // names the path and the reason.
  [[nodiscard]] static std::optional<Error> recognize(const std::optional<std::string>& path,
                                                      SignpostStoreLocation* out);
};

}  // namespace lumvane
