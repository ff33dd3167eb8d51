#include "lumvane/signpost/SignpostStoreDay.h"

#include <chrono>
#include <iterator>
#include <string_view>
#include <utility>

#include "lumvane/signpost/JournalEntryText.h"
#include "lumvane/signpost/SignpostStoreCatalog.h"

namespace lumvane {

using namespace signpost_store;

SignpostStoreDay::SignpostStoreDay(const SignpostStoreGeneratorOptions& options, std::FILE* stream)
    : options_(options), random_(options.seed), entries_(options.format, stream, random_) {}

void SignpostStoreDay::run() {
  // The order of these draws is part of what a seed means.
  std::string machineId = random_.hex128();
  std::string seqnumId = random_.hex128();
  const std::string firstBoot = random_.hex128();
  secondBoot_ = random_.hex128();
  const uint64_t firstSeqnum = 1 + random_.below(100000);
  const int64_t span = int64_t{86400} * 1000000;
  const int64_t suspended = int64_t{2100} * 1000000;  // 35 min asleep in the first boot
  const int64_t awake = span - suspended;
  const int64_t step = options_.records ? awake / static_cast<int64_t>(options_.records) : awake;
  const Date start = options_.end - std::chrono::microseconds(span);
  // The first boot began days before the store's day.
  clock_.emplace(start, awake * 21 / 100, suspended,
                 start - std::chrono::hours(77) - std::chrono::seconds(random_.below(3600)),
                 firstBoot);
  entries_.start(*clock_, std::move(machineId), std::move(seqnumId), firstSeqnum);
  const uint64_t rebootIndex = options_.records * 62 / 100;
  for (uint64_t i = 0; i < options_.records; ++i) {
    index_ = i;
    const int64_t t = static_cast<int64_t>(i) * step +
                      static_cast<int64_t>(random_.below(static_cast<uint64_t>(step) / 2 + 1));
    clock_->advanceToAwake(t);
    if (i == rebootIndex && !clock_->rebooted()) reboot();
    record();
  }
  counts_.unclosedBegins += open_.size();
  entries_.flush();
}

void SignpostStoreDay::reboot() {
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

void SignpostStoreDay::record() {
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
  o.telemetry = options_.accept && random_.below(100) < 75;
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

std::string SignpostStoreDay::stringValue() {
  const uint64_t c = random_.below(100);
  if (c < 40) return random_.pick(kWhitelisted);
  if (c < 55) return random_.pick(kLookAlikes);
  if (c < 85) return random_.pick(kOrdinary);
  if (c < 98) return random_.pick(kPrivate);
  return "Caf\xc3\xa9";  // UTF-8 beyond ASCII
}

// Signed, unsigned above 2^63, floating point, or text that is no number.
std::string SignpostStoreDay::numberValue(bool signedRange) {
  const uint64_t c = random_.below(100);
  if (c < 3) return "n/a";
  if (c < 6) return std::to_string(9223372036854775808ull + random_.below(1000000));
  if (c < 12) {
    // Drawn in sequence, as the operands of + may be evaluated in either order.
    const uint64_t fraction = random_.below(100);
    const uint64_t whole = random_.below(100000);
    return std::to_string(whole) + "." + std::to_string(fraction);
  }
  if (signedRange) return std::to_string(static_cast<int64_t>(random_.below(2000)) - 1000);
  return std::to_string(random_.below(5000000));
}

// Writes one signpost entry; answers whether it enabled telemetry.
bool SignpostStoreDay::signpost(const Open& o, const char* type, bool frame) {
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
  JournalEntryText& entry = entries_.newEntry();
  entry.add("MESSAGE_ID", SignpostStoreGenerator::kSignpostMessageId);
  std::string message = std::string("signpost ") + type + " " + k.subsystem + "/" + k.category +
                        " " + k.name + " (" + k.message + ")";
  if (random_.below(500) == 0) message.append(JournalEntryText::kJsonValueLimit, '.');
  entry.add("MESSAGE", message);
  entry.add("PRIORITY", "6");
  entry.add("SIGNPOST_TYPE", type);
  entry.add("SIGNPOST_ID", std::to_string(o.id));
  entry.add("SIGNPOST_SCOPE", k.scope);
  entry.add("SIGNPOST_SUBSYSTEM", k.subsystem);
  entry.add("SIGNPOST_CATEGORY", k.category);
  entry.add("SIGNPOST_NAME", k.name);
  if (telemetry) entry.add("SIGNPOST_TELEMETRY", "1");
  if (begin && k.animation) entry.add("SIGNPOST_ANIMATION", "1");
  if (frame) {
    entry.add("SIGNPOST_NUMBER1_NAME", "FrameMicros");
    entry.add("SIGNPOST_NUMBER1_VALUE", std::to_string(8000 + random_.below(25000)));
  } else if (end) {
    // The end reports its outcome; slots the begin filled keep the begin's.
    entry.add("SIGNPOST_STRING2_NAME", "Result");
    entry.add("SIGNPOST_STRING2_VALUE", stringValue());
    entry.add("SIGNPOST_NUMBER2_NAME", "Code");
    entry.add("SIGNPOST_NUMBER2_VALUE", numberValue(true));
    entry.add("SIGNPOST_ATTRIBUTE", "Outcome=done");
    if (k.attribute && random_.below(2)) {
      entry.add("SIGNPOST_ATTRIBUTE",
                 std::string(k.attribute) + "=" + random_.pick(kAttributeValues));
    }
  } else {
    if (k.string1) {
      entry.add("SIGNPOST_STRING1_NAME", k.string1);
      entry.add("SIGNPOST_STRING1_VALUE", stringValue());
    }
    if (k.string2) {
      entry.add("SIGNPOST_STRING2_NAME", k.string2);
      entry.add("SIGNPOST_STRING2_VALUE", stringValue());
    }
    if (k.number1) {
      entry.add("SIGNPOST_NUMBER1_NAME", k.number1);
      entry.add("SIGNPOST_NUMBER1_VALUE", numberValue(false));
    }
    if (k.number2) {
      entry.add("SIGNPOST_NUMBER2_NAME", k.number2);
      entry.add("SIGNPOST_NUMBER2_VALUE", numberValue(true));
    }
    if (k.attribute) {
      entry.add("SIGNPOST_ATTRIBUTE",
                 std::string(k.attribute) + "=" + random_.pick(kAttributeValues));
    }
    if (random_.below(3) == 0) entry.add("SIGNPOST_ATTRIBUTE", "Build=2024.4");
  }
  if (k.process >= 0) {
    entry.add("SIGNPOST_TID", std::to_string(thread));
    if (random_.below(50) != 0) entry.add("SIGNPOST_BOOTTIME_NSEC", boottimeNsec());
    entry.add("SYSLOG_IDENTIFIER", process->comm);
    entries_.addSender(*process, "journal");
  } else {
    const uint64_t commandPid = nextCommandPid_++;
    entry.add("SIGNPOST_TID", std::to_string(commandPid));
    entry.add("SIGNPOST_BOOTTIME_NSEC", boottimeNsec());
    if (k.process == kByCommand) {
      entry.add("OBJECT_PID", std::to_string(kScript.pid));
      entry.add("OBJECT_EXE", kScript.exe);
      entry.add("OBJECT_COMM", kScript.comm);
    }
    entry.add("SYSLOG_IDENTIFIER", "lumvane-signpost");
    const Process command = {commandPid, "lumvane-signpost", kCommandExe, "",
                             1000,       "user@1000.service"};
    entries_.addSender(command, "journal");
  }
  ++counts_.signposts;
  emit();
  return telemetry;
}

// A signpost entry whose required fields are missing or out of their
// domain, or whose text is not UTF-8 (the journal keeps such bytes; a
// reader refuses them, as no payload may carry them).
void SignpostStoreDay::malformed() {
  const Process& p = random_.pick(kProcesses);
  JournalEntryText& entry = entries_.newEntry();
  entry.add("MESSAGE_ID", SignpostStoreGenerator::kSignpostMessageId);
  entry.add("MESSAGE", "signpost");
  entry.add("PRIORITY", "6");
  const uint64_t which = random_.below(5);
  entry.add("SIGNPOST_TYPE", which == 0 ? "start" : "event");
  entry.add("SIGNPOST_ID", which == 1 ? "18446744073709551616" : "5");
  entry.add("SIGNPOST_SCOPE", which == 2 ? "global" : "process");
  if (which != 3) entry.add("SIGNPOST_SUBSYSTEM", "com.orvel.gallery");
  entry.add("SIGNPOST_CATEGORY", "Rendering");
  entry.add("SIGNPOST_NAME", "Orphan");
  if (which == 4) {
    entry.add("SIGNPOST_STRING1_NAME", "Label");
    entry.add("SIGNPOST_STRING1_VALUE", "Caf\xe9");  // Latin-1
  }
  if (options_.accept) entry.add("SIGNPOST_TELEMETRY", "1");
  entry.add("SYSLOG_IDENTIFIER", p.comm);
  entries_.addSender(p, "journal");
  ++counts_.signposts;
  ++counts_.malformedSignposts;
  emit();
}

// A signpost begin cut short halfway through its line, as a crashed writer
// leaves it: in the JSON form only, though both forms draw for it.
void SignpostStoreDay::broken() {
  const Process& p = random_.pick(kProcesses);
  JournalEntryText& entry = entries_.newEntry();
  entry.add("MESSAGE_ID", SignpostStoreGenerator::kSignpostMessageId);
  entry.add("SIGNPOST_TYPE", "begin");
  entries_.addSender(p, "journal");
  if (!entries_.emitCutShort()) return;
  ++counts_.records;
  ++counts_.brokenLines;
}

void SignpostStoreDay::other() {
  const OtherProgram& o = random_.pick(kOthers);
  JournalEntryText& entry = entries_.newEntry();
  const uint64_t c = random_.below(100);
  std::string message = random_.pick(o.messages);
  if (c < 2) message = "input: keyboard \xb5 layout reloaded";       // not UTF-8
  if (c == 2) message = "dumping state: " + std::string(6000, 'x');  // over the JSON limit
  entry.add("MESSAGE", message);
  entry.add("PRIORITY", o.priority);
  if (std::string_view(o.transport) == "kernel") {
    entry.add("SYSLOG_FACILITY", "0");
    entry.add("SYSLOG_IDENTIFIER", "kernel");
    entry.add("_TRANSPORT", "kernel");
    entry.add("_SOURCE_MONOTONIC_TIMESTAMP", std::to_string(clock_->monotonicMicros() - 3));
    entries_.addMachine();
  } else {
    if (std::string_view(o.transport) == "syslog") entry.add("SYSLOG_FACILITY", "10");
    entry.add("SYSLOG_IDENTIFIER", o.process.comm);
    if (c >= 3 && c < 8) {
      // Another tool's structured entry that happens to use signpost field names.
      entry.add("MESSAGE_ID", kForeignMessageId);
      entry.add("SIGNPOST_TYPE", "event");
      entry.add("SIGNPOST_ID", "7");
      entry.add("SIGNPOST_SCOPE", "process");
      entry.add("SIGNPOST_SUBSYSTEM", "com.orvel.gallery");
      entry.add("SIGNPOST_CATEGORY", "Rendering");
      if (options_.accept) entry.add("SIGNPOST_TELEMETRY", "1");
    }
    entries_.addSender(o.process, o.transport);
  }
  ++counts_.otherEntries;
  emit();
}

std::string SignpostStoreDay::boottimeNsec() {
  return std::to_string(clock_->boottimeNanos(random_.below(1000)));
}

void SignpostStoreDay::emit() {
  entries_.emit();
  ++counts_.records;
}

}  // namespace lumvane
