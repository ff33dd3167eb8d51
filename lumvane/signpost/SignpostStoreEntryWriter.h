// Writes the entries of a synthetic signpost store: stamps each new entry
// with the fields the journal adds itself (cursor, timestamps, boot, and on
// request the sender's trusted fields and the machine's), then writes it as
// a JSON line or as an export-form block, through a buffer, to a stream.
// It draws from the store's random source exactly as often in either form,
// so that one seed gives the same entries in both. Not thread-safe; one
// writer per write of a store.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "lumvane/signpost/JournalEntryText.h"
#include "lumvane/signpost/SignpostStoreGenerator.h"

namespace lumvane {

namespace signpost_store {
struct Process;
}
class SignpostStoreRandom;
class SyntheticMachineClock;

class SignpostStoreEntryWriter final {
 public:
  // `random` must outlive the writer; `stream` stays the caller's to close.
  SignpostStoreEntryWriter(SignpostStoreFormat format, std::FILE* stream,
                           SignpostStoreRandom& random);

  // Before the first entry: the clock that dates every entry (it must
  // outlive the writer), the machine ID, the journal's sequence-number ID
  // and the first entry's sequence number.
  void start(const SyntheticMachineClock& clock, std::string machineId, std::string seqnumId,
             uint64_t firstSeqnum);

  // Starts the next entry with its cursor, timestamps and boot ID; the
  // caller adds its own fields to the answer, then calls emit() (or
  // emitCutShort()). The answer is valid until the next call.
  JournalEntryText& newEntry();
  // Adds the trusted fields of the process that sent the entry, and the
  // machine's.
  void addSender(const signpost_store::Process& process, const char* transport);
  // Adds the machine's fields alone (host name, machine ID).
  void addMachine();

  // Writes the entry in the store's form.
  void emit();
  // JSON form: writes the first half of the entry's line, as a crashed
  // writer leaves it. The export form has no such entry (systemd-journal-
  // remote would stop at it): nothing is written, but the same random
  // numbers are drawn. Answers whether a line was written.
  bool emitCutShort();

  // Writes out what is buffered; once after the last entry.
  void flush();

  uint64_t bytes() const { return bytes_; }
  // Whether any write to the stream fell short.
  bool failed() const { return failed_; }

 private:
  void write(const std::string& s);

  std::FILE* stream_;
  SignpostStoreRandom& random_;
  const bool json_;
  const SyntheticMachineClock* clock_ = nullptr;  // set by start()
  std::string machineId_, seqnumId_;
  uint64_t seqnum_ = 0;
  JournalEntryText entry_;
  std::string line_, out_;
  uint64_t bytes_ = 0;
  bool failed_ = false;
};

}  // namespace lumvane
