// The baseline of a JSON-lines reader: a bare single-threaded simdjson
// on-demand parse of a file of journal entries, one parser and one 4 MB
// buffer refilled in place (a line cut by the buffer's end moves to its
// front), every line parsed and the fields a signpost reader needs read out.
// It decodes nothing and pairs nothing, so a reader near it spends little
// beside the parse.
#pragma once

#include <cstdint>
#include <string>

namespace lumvane::bench {

struct JsonParseRun {
  double seconds = 0, cpuSeconds = 0;  // CPU of the whole process meanwhile
  uint64_t lines = 0, signposts = 0, fieldsRead = 0;
};

// Parses the file at `path`; all zero when it cannot be opened.
JsonParseRun RunJsonParseBaseline(const std::string& path);

}  // namespace lumvane::bench
