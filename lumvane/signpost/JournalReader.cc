#include "lumvane/signpost/JournalReader.h"

#include <systemd/sd-journal.h>

#include <cstring>
#include <string_view>

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

std::optional<Error> JournalReader::readEntry(SignpostEntryBuilder* builder) {
  sd_journal* j = journal_.get();
  builder->reset();
  const void* data = nullptr;
  size_t length = 0;
  int r = 0;
  sd_journal_restart_data(j);
  while ((r = sd_journal_enumerate_available_data(j, &data, &length)) > 0) {
    const std::string_view field(static_cast<const char*>(data), length);
    const size_t eq = field.find('=');
    if (eq == std::string_view::npos) continue;
    const int index = SignpostEntryBuilder::fieldIndex(field.substr(0, eq));
    if (index < 0) continue;
    if (field.size() - eq - 1 > kMaxValueBytes) {
      builder->markUnreadable();
      continue;
    }
    builder->add(index, field.substr(eq + 1));
  }
  if (r < 0) return Error::fromErrno("cannot read an entry of journal " + name_, -r);

  uint64_t usec = 0;
  if (sd_journal_get_realtime_usec(j, &usec) >= 0) builder->setRealtimeUsec(usec);
  sd_id128_t boot;
  if (sd_journal_get_monotonic_usec(j, &usec, &boot) >= 0) {
    builder->setMonotonicUsec(usec);
    char text[SD_ID128_STRING_MAX];
    builder->setBootID(sd_id128_to_string(boot, text));
  }
  return std::nullopt;
}

}  // namespace lumvane
