// The signpost entries of a systemd journal, read through libsystemd: the
// machine's own journal (system and user journals, local only), a directory
// of journal files (as a copied /var/log/journal, machine-ID folder and
// archived files included) or one journal file. Only entries with the
// signpost MESSAGE_ID are visited, from the first whose realtime timestamp is
// not before the window's start, so other programs' entries cost nothing.
//
// Owns its sd_journal handle. Not thread-safe: one thread uses a reader from
// opening to destruction (libsystemd's rule for a journal handle).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "lumvane/platform/Error.h"
#include "lumvane/signpost/SignpostRecordBatch.h"

struct sd_journal;

namespace lumvane {

class JournalReader final {
 public:
  enum class Source { Machine, Directory, File };

  // The longest value of a signpost field that is read; an entry with a
  // longer one is malformed, as a JSON line over the store's record limit.
  static constexpr size_t kMaxValueBytes = size_t{1} << 20;

  ~JournalReader();
  JournalReader(const JournalReader&) = delete;
  JournalReader& operator=(const JournalReader&) = delete;

  // Opens the journal and positions it before the first signpost entry at
  // or after `startUsec` (realtime, microseconds since the epoch). `path`
  // is ignored for Source::Machine. An error names the path and the reason.
  [[nodiscard]] static std::optional<Error> open(Source source, const std::string& path,
                                                 uint64_t startUsec,
                                                 std::unique_ptr<JournalReader>* out);

  enum class Next { Entry, End, Failed };
  // Moves to the next signpost entry and gives its realtime timestamp.
  // After Failed, error() says why.
  Next next(uint64_t* realtimeUsec);

  // Writes the current entry into `batch` as a record: the values of the
  // fields SignpostEntryBuilder reads, copied in one pass over the entry's
  // data, with its timestamps and boot ID. Fields that cannot be read
  // (compressed in a way this libsystemd does not know) are left out. On
  // an error the record is taken back.
  [[nodiscard]] std::optional<Error> readEntry(SignpostRecordBatch* batch);

  const std::optional<Error>& error() const { return error_; }

 private:
  struct Closer {
    void operator()(sd_journal* j) const;
  };
  struct OpenKey {};  // only open() constructs

 public:
  JournalReader(OpenKey, std::unique_ptr<sd_journal, Closer> journal, std::string name);

 private:
  std::unique_ptr<sd_journal, Closer> journal_;
  std::string name_;  // for error messages
  std::optional<Error> error_;
};

}  // namespace lumvane
