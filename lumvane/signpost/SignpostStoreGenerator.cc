#include "lumvane/signpost/SignpostStoreGenerator.h"

#include <cerrno>
#include <cinttypes>
#include <vector>

#include "lumvane/signpost/JournalEntryText.h"
#include "lumvane/signpost/SignpostStoreCatalog.h"
#include "lumvane/signpost/SyntheticMachineClock.h"

namespace lumvane {
namespace {

using namespace signpost_store;

// splitmix64: small, fast and the same on every platform, so a seed always
// gives the same store.
class Random {
 public:
  explicit Random(uint64_t seed) : s_(seed) {}
  uint64_t next() {
    uint64_t z = (s_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  uint64_t below(uint64_t n) { return n ? next() % n : 0; }
  template <typename T, size_t N>
  const T& pick(const T (&items)[N]) {
    return items[below(N)];
  }

 private:
  uint64_t s_;
};

std::string Hex128(Random& r) {
  char buf[33];
  std::snprintf(buf, sizeof buf, "%016" PRIx64 "%016" PRIx64, r.next(), r.next());
  return buf;
}

class Writer {
 public:
  Writer(const SignpostStoreGeneratorOptions& o, std::FILE* f)
      : o_(o), f_(f), random_(o.seed), json_(o.format == SignpostStoreFormat::JournalJson) {}

  const SignpostStoreCounts& counts() const { return counts_; }
  uint64_t bytes() const { return bytes_; }
  bool failed() const { return failed_; }

  void run() {
    machineId_ = Hex128(random_);
    seqnumId_ = Hex128(random_);
    const std::string firstBoot = Hex128(random_);
    secondBoot_ = Hex128(random_);
    seqnum_ = 1 + random_.below(100000);
    const int64_t span = int64_t{86400} * 1000000;
    const int64_t suspended = int64_t{2100} * 1000000;  // 35 min asleep in the first boot
    const int64_t awake = span - suspended;
    const int64_t step = o_.records ? awake / static_cast<int64_t>(o_.records) : awake;
    const Date start = o_.end - std::chrono::microseconds(span);
    // The first boot began days before the store's day.
    clock_.emplace(start, awake * 21 / 100, suspended,
                   start - std::chrono::hours(77) - std::chrono::seconds(random_.below(3600)),
                   firstBoot);
    const uint64_t rebootIndex = o_.records * 62 / 100;
    for (uint64_t i = 0; i < o_.records; ++i) {
      index_ = i;
      const int64_t t = static_cast<int64_t>(i) * step +
                        static_cast<int64_t>(random_.below(static_cast<uint64_t>(step) / 2 + 1));
      clock_->advanceToAwake(t);
      if (i == rebootIndex && !clock_->rebooted()) reboot();
      record();
    }
    counts_.unclosedBegins += open_.size();
    flush();
  }

 private:
  struct Open {
    size_t kind;
    uint64_t id;
    const Process* process;
    uint64_t thread;
    uint64_t nextAt;
    uint64_t framesLeft;
    bool telemetry;
    bool stray;  // an end in a later boot: no begin to pair with
  };

  void reboot() {
    clock_->reboot(clock_->now() - std::chrono::seconds(18 + random_.below(12)), secondBoot_);
    counts_.unclosedBegins += open_.size();
    std::vector<Open> strays;
    for (Open& o : open_) {
      if (random_.below(2)) continue;
      o.stray = true;
      o.framesLeft = 0;
      o.nextAt = index_ + 1 + random_.below(30);
      strays.push_back(o);
    }
    open_ = std::move(strays);
  }

  void record() {
    // Other programs log all the time; signposts due now wait their turn.
    const uint64_t r = random_.below(1000);
    if (r < 4) return malformed();
    if (r < 7) return broken();
    if (r < 300) return other();
    for (size_t k = 0; k < open_.size(); ++k) {
      if (open_[k].nextAt > index_) continue;
      Open o = open_[k];
      if (o.framesLeft > 0) {
        --open_[k].framesLeft;
        open_[k].nextAt = index_ + 1 + random_.below(4);
        signpost(o, "event", true);
        ++counts_.events;
      } else {
        open_.erase(open_.begin() + static_cast<long>(k));
        const bool endTelemetry = signpost(o, "end");
        if (o.stray) {
          ++counts_.unmatchedEnds;
        } else {
          ++(kKinds[o.kind].animation ? counts_.animationIntervals : counts_.intervals);
          counts_.telemetryObjects += o.telemetry || endTelemetry;
        }
      }
      return;
    }
    if (r >= 600 && open_.size() >= 32) return other();
    Open o{};
    o.kind = random_.below(std::size(kKinds));
    o.id = random_.next() | 1;  // never 0
    const int p = kKinds[o.kind].process;
    o.process = p >= 0 ? &kProcesses[p] : &kScript;
    o.thread = o.process->pid + random_.below(8);
    o.telemetry = o_.accept && random_.below(100) < 75;
    if (r < 480) {
      signpost(o, "event");
      ++counts_.events;
      counts_.telemetryObjects += o.telemetry;
      return;
    }
    o.nextAt = index_ + 1 + random_.below(40);
    o.framesLeft = kKinds[o.kind].animation ? 1 + random_.below(8) : 0;
    signpost(o, "begin");
    open_.push_back(o);
  }

  std::string stringValue() {
    const uint64_t c = random_.below(100);
    if (c < 40) return random_.pick(kWhitelisted);
    if (c < 55) return random_.pick(kLookAlikes);
    if (c < 85) return random_.pick(kOrdinary);
    if (c < 98) return random_.pick(kPrivate);
    return "Caf\xc3\xa9";  // UTF-8 beyond ASCII
  }

  // Signed, unsigned above 2^63, floating point, or text that is no number.
  std::string numberValue(bool signedRange) {
    const uint64_t c = random_.below(100);
    if (c < 3) return "n/a";
    if (c < 6) return std::to_string(9223372036854775808ull + random_.below(1000000));
    if (c < 12)
      return std::to_string(random_.below(100000)) + "." + std::to_string(random_.below(100));
    if (signedRange) return std::to_string(static_cast<int64_t>(random_.below(2000)) - 1000);
    return std::to_string(random_.below(5000000));
  }

  // Writes one signpost entry; answers whether it enabled telemetry.
  bool signpost(const Open& o, const char* type, bool frame = false) {
    const SignpostKind& k = kKinds[o.kind];
    const bool begin = type[0] == 'b', end = type[0] == 'e' && type[1] == 'n';
    bool telemetry = false;
    if (o.telemetry && !frame) {
      // An interval enables telemetry on its begin, its end, or both.
      const uint64_t side = end || begin ? random_.below(10) : 0;
      telemetry = begin ? side < 7 : end ? side >= 5 : true;
      if (begin && side >= 7) pendingEndTelemetry_.push_back(o.id);
    }
    if (end) {
      for (size_t i = 0; i < pendingEndTelemetry_.size(); ++i) {
        if (pendingEndTelemetry_[i] != o.id) continue;
        telemetry = true;
        pendingEndTelemetry_.erase(pendingEndTelemetry_.begin() + static_cast<long>(i));
        break;
      }
    }
    // A system-scope interval may end in another program.
    const Process* process = o.process;
    uint64_t thread = o.thread;
    if (end && std::string_view(k.scope) == "system" && k.process >= 0 && random_.below(3) == 0) {
      process = &random_.pick(kProcesses);
      thread = process->pid;
    } else if (end && std::string_view(k.scope) == "process") {
      thread = o.process->pid + random_.below(8);  // any thread of the process
    }
    entry_.clear();
    header();
    entry_.add("MESSAGE_ID", SignpostStoreGenerator::kSignpostMessageId);
    std::string message = std::string("signpost ") + type + " " + k.subsystem + "/" + k.category +
                          " " + k.name + " (" + k.message + ")";
    if (random_.below(500) == 0) message.append(JournalEntryText::kJsonValueLimit, '.');
    entry_.add("MESSAGE", message);
    entry_.add("PRIORITY", "6");
    entry_.add("SIGNPOST_TYPE", type);
    entry_.add("SIGNPOST_ID", std::to_string(o.id));
    entry_.add("SIGNPOST_SCOPE", k.scope);
    entry_.add("SIGNPOST_SUBSYSTEM", k.subsystem);
    entry_.add("SIGNPOST_CATEGORY", k.category);
    entry_.add("SIGNPOST_NAME", k.name);
    if (telemetry) entry_.add("SIGNPOST_TELEMETRY", "1");
    if (begin && k.animation) entry_.add("SIGNPOST_ANIMATION", "1");
    if (frame) {
      entry_.add("SIGNPOST_NUMBER1_NAME", "FrameMicros");
      entry_.add("SIGNPOST_NUMBER1_VALUE", std::to_string(8000 + random_.below(25000)));
    } else if (end) {
      // The end reports its outcome; slots the begin filled keep the begin's.
      entry_.add("SIGNPOST_STRING2_NAME", "Result");
      entry_.add("SIGNPOST_STRING2_VALUE", stringValue());
      entry_.add("SIGNPOST_NUMBER2_NAME", "Code");
      entry_.add("SIGNPOST_NUMBER2_VALUE", numberValue(true));
      entry_.add("SIGNPOST_ATTRIBUTE", "Outcome=done");
      if (k.attribute && random_.below(2)) {
        entry_.add("SIGNPOST_ATTRIBUTE",
                   std::string(k.attribute) + "=" + random_.pick(kAttributeValues));
      }
    } else {
      if (k.string1) {
        entry_.add("SIGNPOST_STRING1_NAME", k.string1);
        entry_.add("SIGNPOST_STRING1_VALUE", stringValue());
      }
      if (k.string2) {
        entry_.add("SIGNPOST_STRING2_NAME", k.string2);
        entry_.add("SIGNPOST_STRING2_VALUE", stringValue());
      }
      if (k.number1) {
        entry_.add("SIGNPOST_NUMBER1_NAME", k.number1);
        entry_.add("SIGNPOST_NUMBER1_VALUE", numberValue(false));
      }
      if (k.number2) {
        entry_.add("SIGNPOST_NUMBER2_NAME", k.number2);
        entry_.add("SIGNPOST_NUMBER2_VALUE", numberValue(true));
      }
      if (k.attribute) {
        entry_.add("SIGNPOST_ATTRIBUTE",
                   std::string(k.attribute) + "=" + random_.pick(kAttributeValues));
      }
      if (random_.below(3) == 0) entry_.add("SIGNPOST_ATTRIBUTE", "Build=2024.4");
    }
    if (k.process >= 0) {
      entry_.add("SIGNPOST_TID", std::to_string(thread));
      if (random_.below(50) != 0) entry_.add("SIGNPOST_BOOTTIME_NSEC", boottimeNsec());
      entry_.add("SYSLOG_IDENTIFIER", process->comm);
      trusted(*process, "journal");
    } else {
      const uint64_t commandPid = nextCommandPid_++;
      entry_.add("SIGNPOST_TID", std::to_string(commandPid));
      entry_.add("SIGNPOST_BOOTTIME_NSEC", boottimeNsec());
      if (k.process == kByCommand) {
        entry_.add("OBJECT_PID", std::to_string(kScript.pid));
        entry_.add("OBJECT_EXE", kScript.exe);
        entry_.add("OBJECT_COMM", kScript.comm);
      }
      entry_.add("SYSLOG_IDENTIFIER", "lumvane-signpost");
      const Process command = {commandPid, "lumvane-signpost", kCommandExe, "",
                               1000,       "user@1000.service"};
      trusted(command, "journal");
    }
    ++counts_.signposts;
    emit();
    return telemetry;
  }

  // A signpost entry whose required fields are missing or out of their
  // domain, or whose text is not UTF-8 (the journal keeps such bytes; a
  // reader refuses them, as no payload may carry them).
  void malformed() {
    const Process& p = random_.pick(kProcesses);
    entry_.clear();
    header();
    entry_.add("MESSAGE_ID", SignpostStoreGenerator::kSignpostMessageId);
    entry_.add("MESSAGE", "signpost");
    entry_.add("PRIORITY", "6");
    const uint64_t which = random_.below(5);
    entry_.add("SIGNPOST_TYPE", which == 0 ? "start" : "event");
    entry_.add("SIGNPOST_ID", which == 1 ? "18446744073709551616" : "5");
    entry_.add("SIGNPOST_SCOPE", which == 2 ? "global" : "process");
    if (which != 3) entry_.add("SIGNPOST_SUBSYSTEM", "com.orvel.gallery");
    entry_.add("SIGNPOST_CATEGORY", "Rendering");
    entry_.add("SIGNPOST_NAME", "Orphan");
    if (which == 4) {
      entry_.add("SIGNPOST_STRING1_NAME", "Label");
      entry_.add("SIGNPOST_STRING1_VALUE", "Caf\xe9");  // Latin-1
    }
    if (o_.accept) entry_.add("SIGNPOST_TELEMETRY", "1");
    entry_.add("SYSLOG_IDENTIFIER", p.comm);
    trusted(p, "journal");
    ++counts_.signposts;
    ++counts_.malformedSignposts;
    emit();
  }

  // JSON form: a line cut short, as a crashed writer leaves it. The export
  // form has no such line (systemd-journal-remote would stop at it), but the
  // same random numbers are drawn, so both forms hold the same entries.
  void broken() {
    const Process& p = random_.pick(kProcesses);
    entry_.clear();
    header();
    entry_.add("MESSAGE_ID", SignpostStoreGenerator::kSignpostMessageId);
    entry_.add("SIGNPOST_TYPE", "begin");
    trusted(p, "journal");
    line_.clear();
    entry_.appendJson(&line_, random_.next());
    if (!json_) return;
    line_.resize(line_.size() / 2);
    line_.push_back('\n');
    write(line_);
    ++counts_.records;
    ++counts_.brokenLines;
  }

  void other() {
    const OtherProgram& o = random_.pick(kOthers);
    entry_.clear();
    header();
    const uint64_t c = random_.below(100);
    std::string message = random_.pick(o.messages);
    if (c < 2) message = "input: keyboard \xb5 layout reloaded";       // not UTF-8
    if (c == 2) message = "dumping state: " + std::string(6000, 'x');  // over the JSON limit
    entry_.add("MESSAGE", message);
    entry_.add("PRIORITY", o.priority);
    if (std::string_view(o.transport) == "kernel") {
      entry_.add("SYSLOG_FACILITY", "0");
      entry_.add("SYSLOG_IDENTIFIER", "kernel");
      entry_.add("_TRANSPORT", "kernel");
      entry_.add("_SOURCE_MONOTONIC_TIMESTAMP", std::to_string(clock_->monotonicMicros() - 3));
      common();
    } else {
      if (std::string_view(o.transport) == "syslog") entry_.add("SYSLOG_FACILITY", "10");
      entry_.add("SYSLOG_IDENTIFIER", o.process.comm);
      if (c >= 3 && c < 8) {
        // Another tool's structured entry that happens to use signpost field names.
        entry_.add("MESSAGE_ID", kForeignMessageId);
        entry_.add("SIGNPOST_TYPE", "event");
        entry_.add("SIGNPOST_ID", "7");
        entry_.add("SIGNPOST_SCOPE", "process");
        entry_.add("SIGNPOST_SUBSYSTEM", "com.orvel.gallery");
        entry_.add("SIGNPOST_CATEGORY", "Rendering");
        if (o_.accept) entry_.add("SIGNPOST_TELEMETRY", "1");
      }
      trusted(o.process, o.transport);
    }
    ++counts_.otherEntries;
    emit();
  }

  void header() {
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
  }

  void trusted(const Process& p, const char* transport) {
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
    common();
  }

  void common() {
    entry_.add("_HOSTNAME", "workstation");
    entry_.add("_MACHINE_ID", machineId_);
  }

  std::string boottimeNsec() { return std::to_string(clock_->boottimeNanos(random_.below(1000))); }

  void emit() {
    line_.clear();
    if (json_) {
      entry_.appendJson(&line_, random_.next());
    } else {
      random_.next();  // the same draws in both forms
      entry_.appendExport(&line_);
    }
    write(line_);
    ++counts_.records;
  }

  void write(const std::string& s) {
    out_ += s;
    if (out_.size() >= (size_t{1} << 20)) flush();
  }
  void flush() {
    if (out_.empty()) return;
    const size_t n = std::fwrite(out_.data(), 1, out_.size(), f_);
    bytes_ += n;
    failed_ = failed_ || n != out_.size();
    out_.clear();
  }

  const SignpostStoreGeneratorOptions& o_;
  std::FILE* f_;
  Random random_;
  const bool json_;
  std::string machineId_, seqnumId_, secondBoot_;
  std::optional<SyntheticMachineClock> clock_;  // set when the run begins
  uint64_t seqnum_ = 0;
  uint64_t nextCommandPid_ = 30211;
  uint64_t index_ = 0;
  std::vector<Open> open_;
  std::vector<uint64_t> pendingEndTelemetry_;  // IDs whose end enables telemetry
  JournalEntryText entry_;
  std::string line_, out_;
  SignpostStoreCounts counts_;
  uint64_t bytes_ = 0;
  bool failed_ = false;
};

}  // namespace

SignpostStoreGenerator::SignpostStoreGenerator(SignpostStoreGeneratorOptions options)
    : options_(options) {}

std::optional<Error> SignpostStoreGenerator::writeTo(const std::string& path) {
  if (path == "-") return writeTo(stdout, "standard output");
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (!f) return Error::fromErrno("cannot create " + path, errno);
  std::optional<Error> error = writeTo(f, path);
  if (std::fclose(f) != 0 && !error) error = Error::fromErrno("cannot write " + path, errno);
  return error;
}

std::optional<Error> SignpostStoreGenerator::writeTo(std::FILE* stream, const std::string& name) {
  Writer writer(options_, stream);
  errno = 0;
  writer.run();
  bytes_ = writer.bytes();
  counts_ = writer.counts();
  const int err = errno ? errno : EIO;
  if (writer.failed() || std::fflush(stream) != 0) {
    return Error::fromErrno("cannot write " + name, errno ? errno : err);
  }
  return std::nullopt;
}

}  // namespace lumvane
