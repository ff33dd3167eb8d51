#include "lumvane/signpost/SignpostStoreEntryWriter.h"

#include <cinttypes>
#include <utility>

#include "lumvane/signpost/SignpostStoreCatalog.h"
#include "lumvane/signpost/SignpostStoreRandom.h"
#include "lumvane/signpost/SyntheticMachineClock.h"

namespace lumvane {

namespace {
// Buffered output goes to the stream in pieces of about this size.
constexpr size_t kFlushBytes = size_t{1} << 20;
}  // namespace

SignpostStoreEntryWriter::SignpostStoreEntryWriter(SignpostStoreFormat format, std::FILE* stream,
                                                   SignpostStoreRandom& random)
    : stream_(stream), random_(random), json_(format == SignpostStoreFormat::JournalJson) {}

void SignpostStoreEntryWriter::start(const SyntheticMachineClock& clock, std::string machineId,
                                     std::string seqnumId, uint64_t firstSeqnum) {
  clock_ = &clock;
  machineId_ = std::move(machineId);
  seqnumId_ = std::move(seqnumId);
  seqnum_ = firstSeqnum;
}

JournalEntryText& SignpostStoreEntryWriter::newEntry() {
  entry_.clear();
  char cursor[256];
  const uint64_t mono = clock_->monotonicMicros();
  const uint64_t real = clock_->realtimeMicros();
  std::snprintf(
      cursor, sizeof cursor, "s=%s;i=%" PRIx64 ";b=%s;m=%" PRIx64 ";t=%" PRIx64 ";x=%016" PRIx64,
      seqnumId_.c_str(), seqnum_++, clock_->bootId().c_str(), mono, real, random_.next());
  entry_.add("__CURSOR", cursor);
  entry_.add("__REALTIME_TIMESTAMP", std::to_string(real));
  entry_.add("__MONOTONIC_TIMESTAMP", std::to_string(mono));
  entry_.add("_BOOT_ID", clock_->bootId());
  return entry_;
}

void SignpostStoreEntryWriter::addSender(const signpost_store::Process& p,
                                         const char* transport) {
  entry_.add("_PID", std::to_string(p.pid));
  entry_.add("_UID", std::to_string(p.uid));
  entry_.add("_GID", std::to_string(p.uid));
  entry_.add("_COMM", p.comm);
  entry_.add("_EXE", p.exe);
  if (*p.cmdline) entry_.add("_CMDLINE", p.cmdline);
  entry_.add("_CAP_EFFECTIVE", p.uid == 0 ? "1ffffffffff" : "0");
  entry_.add("_SYSTEMD_CGROUP",
             std::string(p.uid == 0 ? "/system.slice/" : "/user.slice/") + p.unit);
  entry_.add("_SYSTEMD_UNIT", p.unit);
  entry_.add("_SYSTEMD_SLICE", p.uid == 0 ? "system.slice" : "user-1000.slice");
  entry_.add("_TRANSPORT", transport);
  addMachine();
}

void SignpostStoreEntryWriter::addMachine() {
  entry_.add("_HOSTNAME", "workstation");
  entry_.add("_MACHINE_ID", machineId_);
}

void SignpostStoreEntryWriter::emit() {
  line_.clear();
  if (json_) {
    entry_.appendJson(&line_, random_.next());
  } else {
    random_.next();  // the same draws in both forms
    entry_.appendExport(&line_);
  }
  write(line_);
}

bool SignpostStoreEntryWriter::emitCutShort() {
  line_.clear();
  entry_.appendJson(&line_, random_.next());
  if (!json_) return false;
  line_.resize(line_.size() / 2);
  line_.push_back('\n');
  write(line_);
  return true;
}

void SignpostStoreEntryWriter::write(const std::string& s) {
  out_ += s;
  if (out_.size() >= kFlushBytes) flush();
}

void SignpostStoreEntryWriter::flush() {
  if (out_.empty()) return;
  const size_t n = std::fwrite(out_.data(), 1, out_.size(), stream_);
  bytes_ += n;
  failed_ = failed_ || n != out_.size();
  out_.clear();
}

}  // namespace lumvane
