// Makes the content of a synthetic signpost store's day, entry by entry:
// when the machine sleeps and reboots, which signposts begin, fire and end,
// their arguments and telemetry flags, the malformed and cut-short ones and
// the other programs' entries in between, counting what it makes. Each entry
// goes to a SignpostStoreEntryWriter in the store's form. Everything comes
// from one random source seeded from the options, so a seed gives the same
// day. Used by SignpostStoreGenerator only; not thread-safe, one per write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "lumvane/signpost/SignpostStoreEntryWriter.h"
#include "lumvane/signpost/SignpostStoreGenerator.h"
#include "lumvane/signpost/SignpostStoreRandom.h"
#include "lumvane/signpost/SyntheticMachineClock.h"

namespace lumvane {

class SignpostStoreDay final {
 public:
  // `stream` stays the caller's to close.
  SignpostStoreDay(const SignpostStoreGeneratorOptions& options, std::FILE* stream);

  // Makes and writes the whole day; call once.
  void run();

  const SignpostStoreCounts& counts() const { return counts_; }
  uint64_t bytes() const { return entries_.bytes(); }
  bool failed() const { return entries_.failed(); }

 private:
  // A signpost that has begun and waits for its frames or its end.
  struct Open {
    size_t kind;
    uint64_t id;
    const signpost_store::Process* process;
    uint64_t thread;
    uint64_t nextAt;
    uint64_t framesLeft;
    bool telemetry;
    bool stray;  // an end in a later boot: no begin to pair with
  };

  void reboot();
  void record();
  bool signpost(const Open& o, const char* type, bool frame = false);
  void malformed();
  void broken();
  void other();
  std::string stringValue();
  std::string numberValue(bool signedRange);
  std::string boottimeNsec();
  void emit();

  const SignpostStoreGeneratorOptions options_;
  SignpostStoreRandom random_;
  SignpostStoreEntryWriter entries_;  // draws from random_
  std::string secondBoot_;
  std::optional<SyntheticMachineClock> clock_;  // set when the run begins
  uint64_t nextCommandPid_ = 30211;
  uint64_t index_ = 0;
  std::vector<Open> open_;
  std::vector<uint64_t> pendingEndTelemetry_;  // IDs whose end enables telemetry
  SignpostStoreCounts counts_;
};

}  // namespace lumvane
