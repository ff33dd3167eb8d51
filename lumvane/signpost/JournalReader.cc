#include "lumvane/signpost/JournalReader.h"

#include <systemd/sd-journal.h>

#include <cstring>
#include <string_view>

#include "lumvane/signpost/SignpostEntryBuilder.h"

namespace lumvane {

void JournalReader::Closer::operator()(sd_journal* j) const { sd_journal_close(j); }

JournalReader::JournalReader(OpenKey, std::unique_ptr<sd_journal, Closer> journal, std::string name)
    : journal_(std::move(journal)), name_(std::move(name)) {}

JournalReader::~JournalReader() = default;

std::optional<Error> JournalReader::open(Source source, const std::string& path,
                                         uint64_t startUsec, std::unique_ptr<JournalReader>* out) {
  sd_journal* j = nullptr;
  int r = 0;
  std::string name;
  switch (source) {
    case Source::Machine:
      name = "the system journal";
      r = sd_journal_open(&j, SD_JOURNAL_LOCAL_ONLY);
      break;
    case Source::Directory:
      name = path;
      r = sd_journal_open_directory(&j, path.c_str(), 0);
      break;
    case Source::File: {
      name = path;
      const char* paths[] = {path.c_str(), nullptr};
      r = sd_journal_open_files(&j, paths, 0);
      break;
    }
  }
  if (r < 0) return Error::fromErrno("cannot open journal " + name, -r);
  std::unique_ptr<sd_journal, Closer> journal(j);

  // No value may come cut short at libsystemd's default threshold of
  // 64 KiB: a shortened argument would be reported as if whole. Values over
  // kMaxValueBytes are refused by readEntry instead.
  r = sd_journal_set_data_threshold(j, 0);
  if (r >= 0) {
    const std::string match =
        std::string("MESSAGE_ID=") + std::string(SignpostEntryBuilder::kMessageID);
    r = sd_journal_add_match(j, match.data(), match.size());
  }
  if (r >= 0) r = sd_journal_seek_realtime_usec(j, startUsec);
  if (r < 0) return Error::fromErrno("cannot read journal " + name, -r);
  *out = std::make_unique<JournalReader>(OpenKey{}, std::move(journal), std::move(name));
  return std::nullopt;
}

JournalReader::Next JournalReader::next(uint64_t* realtimeUsec) {
  int r = sd_journal_next(journal_.get());
  if (r == 0) return Next::End;
  if (r > 0) r = sd_journal_get_realtime_usec(journal_.get(), realtimeUsec);
  if (r < 0) {
    error_ = Error::fromErrno("cannot read journal " + name_, -r);
    return Next::Failed;
  }
  return Next::Entry;
}

std::optional<Error> JournalReader::readEntry(SignpostRecordBatch* batch) {
  sd_journal* j = journal_.get();
  SignpostRecordBatch::Record& record = batch->startRecord();
  // The entry's own index gives the timestamps and the boot ID without a
  // field lookup.
  uint64_t usec = 0;
  if (sd_journal_get_realtime_usec(j, &usec) >= 0) record.realtimeUsec = usec;
  sd_id128_t boot;
  if (sd_journal_get_monotonic_usec(j, &usec, &boot) >= 0) {
    record.monotonicUsec = usec;
    char text[SD_ID128_STRING_MAX];
    sd_id128_to_string(boot, text);
    std::memcpy(record.bootID.data(), text, record.bootID.size());
    record.hasBootID = true;
  }
  const void* data = nullptr;
  size_t length = 0;
  int r = 0;
  sd_journal_restart_data(j);
  while ((r = sd_journal_enumerate_available_data(j, &data, &length)) > 0) {
    // Items are copied whole and sorted by name on the decoding thread,
    // which has time to spare; only a value too long to read is looked at
    // here, so that a huge item of another field is never copied.
    if (length > kMaxValueBytes) {
      const char* const field = static_cast<const char*>(data);
      const char* const eq = static_cast<const char*>(std::memchr(field, '=', length));
      if (!eq) continue;
      const size_t nameSize = static_cast<size_t>(eq - field);
      if (length - nameSize - 1 > kMaxValueBytes) {
        if (SignpostEntryBuilder::fieldIndex(std::string_view(field, nameSize)) >= 0) {
          record.unreadable = true;
        }
        continue;
      }
    }
    batch->addItem(std::string_view(static_cast<const char*>(data), length));
  }
  if (r < 0) {
    batch->dropRecord();
    return Error::fromErrno("cannot read an entry of journal " + name_, -r);
  }
  return std::nullopt;
}

}  // namespace lumvane
