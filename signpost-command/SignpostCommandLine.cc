#include "SignpostCommandLine.h"

#include <getopt.h>

#include <cerrno>
#include <charconv>
#include <cstring>

namespace lumvane {
namespace {

bool IsDigits(const char* begin, const char* end) {
  if (begin == end) return false;
  for (const char* p = begin; p != end; ++p)
    if (*p < '0' || *p > '9') return false;
  return true;
}

// JSON's number grammar: -?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?
bool IsJsonNumber(const std::string& text) {
  const char* p = text.c_str();
  if (*p == '-') ++p;
  if (*p == '0') {
    ++p;
  } else if (*p >= '1' && *p <= '9') {
    while (*p >= '0' && *p <= '9') ++p;
  } else {
    return false;
  }
  if (*p == '.') {
    const char* digits = ++p;
    while (*p >= '0' && *p <= '9') ++p;
    if (p == digits) return false;
  }
  if (*p == 'e' || *p == 'E') {
    ++p;
    if (*p == '+' || *p == '-') ++p;
    const char* digits = p;
    while (*p >= '0' && *p <= '9') ++p;
    if (p == digits) return false;
  }
  return *p == '\0';
}

// "NAME=VALUE", split at the first '='; the name may not be empty.
std::optional<std::pair<std::string, std::string>> SplitPair(const char* text) {
  const char* eq = std::strchr(text, '=');
  if (eq == nullptr || eq == text) return std::nullopt;
  return std::make_pair(std::string(text, eq), std::string(eq + 1));
}

enum Option {
  kSubsystem = 256,
  kCategory,
  kName,
  kId,
  kScope,
  kPid,
  kTelemetry,
  kAnimation,
  kString1,
  kString2,
  kNumber1,
  kNumber2,
  kAttribute,
  kMessage,
  kHelp
};

const option kOptions[] = {
    {"subsystem", required_argument, nullptr, kSubsystem},
    {"category", required_argument, nullptr, kCategory},
    {"name", required_argument, nullptr, kName},
    {"id", required_argument, nullptr, kId},
    {"scope", required_argument, nullptr, kScope},
    {"pid", required_argument, nullptr, kPid},
    {"telemetry", no_argument, nullptr, kTelemetry},
    {"animation", no_argument, nullptr, kAnimation},
    {"string1", required_argument, nullptr, kString1},
    {"string2", required_argument, nullptr, kString2},
    {"number1", required_argument, nullptr, kNumber1},
    {"number2", required_argument, nullptr, kNumber2},
    {"attribute", required_argument, nullptr, kAttribute},
    {"message", required_argument, nullptr, kMessage},
    {"help", no_argument, nullptr, kHelp},
    {nullptr, 0, nullptr, 0},
};

}  // namespace

std::optional<lumvane_signpost_number> ParseSignpostNumber(const std::string& text) {
  const char* begin = text.data();
  const char* end = begin + text.size();
  lumvane_signpost_number n{};
  if (IsDigits(begin + (text[0] == '-' ? 1 : 0), end)) {
    if (text[0] == '-') {
      auto [p, ec] = std::from_chars(begin, end, n.value.i);
      if (ec == std::errc() && p == end) {
        n.kind = LUMVANE_SIGNPOST_NUMBER_INT64;
        return n;
      }
    } else {
      // Non-negative values that fit int64 are written the same either way.
      auto [p, ec] = std::from_chars(begin, end, n.value.u);
      if (ec == std::errc() && p == end) {
        n.kind = LUMVANE_SIGNPOST_NUMBER_UINT64;
        return n;
      }
    }
  }
  if (!IsJsonNumber(text)) return std::nullopt;
  auto [p, ec] = std::from_chars(begin, end, n.value.d);
  if (ec != std::errc() || p != end) return std::nullopt;  // out of double's range
  n.kind = LUMVANE_SIGNPOST_NUMBER_DOUBLE;
  return n;
}

SignpostCommandLine SignpostCommandLine::Parse(int argc, char* const argv[]) {
  SignpostCommandLine c;
  auto fail = [&c](std::string why) {
    if (c.error_.empty()) c.error_ = std::move(why);
    return c;
  };
  // getopt_long keeps state in globals: start afresh on every parse.
  optind = 0;
  opterr = 0;
  std::optional<std::string> command;
  bool scopeGiven = false;
  int opt;
  // The leading '-' hands operands over in order, as option 1.
  while ((opt = getopt_long(argc, argv, "-", kOptions, nullptr)) != -1) {
    const char* arg = optarg;
    switch (opt) {
      case 1:
        if (command) return fail(std::string("unexpected argument '") + arg + "'");
        command = arg;
        break;
      case kSubsystem:
        c.subsystem_ = arg;
        break;
      case kCategory:
        c.category_ = arg;
        break;
      case kName:
        c.name_ = arg;
        break;
      case kMessage:
        c.message_ = arg;
        c.hasMessage_ = true;
        break;
      case kTelemetry:
        c.flags_ |= LUMVANE_SIGNPOST_TELEMETRY;
        break;
      case kAnimation:
        c.flags_ |= LUMVANE_SIGNPOST_ANIMATION;
        break;
      case kHelp:
        c.help_ = true;
        return c;
      case kId: {
        std::uint64_t id = 0;
        const char* end = arg + std::strlen(arg);
        auto [p, ec] = std::from_chars(arg, end, id);
        if (!IsDigits(arg, end) || ec != std::errc() || p != end || id == 0)
          return fail(std::string("--id: '") + arg +
                      "' is not a non-zero unsigned 64-bit decimal number");
        c.id_ = id;
        break;
      }
      case kScope:
        scopeGiven = true;
        if (std::strcmp(arg, "process") == 0) {
          c.scope_ = LUMVANE_SIGNPOST_SCOPE_PROCESS;
        } else if (std::strcmp(arg, "system") == 0) {
          c.scope_ = LUMVANE_SIGNPOST_SCOPE_SYSTEM;
        } else if (std::strcmp(arg, "thread") == 0) {
          return fail(
              "--scope thread: each call is its own process and thread, so no end could pair");
        } else {
          return fail(std::string("--scope: '") + arg + "' is neither process nor system");
        }
        break;
      case kPid: {
        int pid = 0;
        const char* end = arg + std::strlen(arg);
        auto [p, ec] = std::from_chars(arg, end, pid);
        if (!IsDigits(arg, end) || ec != std::errc() || p != end || pid <= 0)
          return fail(std::string("--pid: '") + arg + "' is not a process ID");
        c.objectPid_ = pid;
        break;
      }
      case kString1:
      case kString2: {
        auto pair = SplitPair(arg);
        if (!pair) return fail(std::string("--string: '") + arg + "' is not NAME=VALUE");
        c.strings_[opt == kString1 ? 0 : 1] = std::move(pair);
        break;
      }
      case kNumber1:
      case kNumber2: {
        auto pair = SplitPair(arg);
        std::optional<lumvane_signpost_number> number;
        if (pair) number = ParseSignpostNumber(pair->second);
        if (!number) return fail(std::string("--number: '") + arg + "' is not NAME=NUMBER");
        int slot = opt == kNumber1 ? 0 : 1;
        c.numberTexts_[slot] = std::move(pair);
        c.numbers_[slot] = *number;
        break;
      }
      case kAttribute: {
        auto pair = SplitPair(arg);
        if (!pair) return fail(std::string("--attribute: '") + arg + "' is not KEY=VALUE");
        for (const auto& given : c.attributeTexts_)
          if (given.first == pair->first)
            return fail("--attribute: key '" + pair->first + "' given twice");
        c.attributeTexts_.push_back(std::move(*pair));
        break;
      }
      default:
        return fail(std::string("unknown or incomplete option '") + argv[optind - 1] + "'");
    }
  }
  if (!command) return fail("missing command: begin, end or event");
  if (*command == "begin") {
    c.type_ = LUMVANE_SIGNPOST_BEGIN;
  } else if (*command == "end") {
    c.type_ = LUMVANE_SIGNPOST_END;
  } else if (*command == "event") {
    c.type_ = LUMVANE_SIGNPOST_EVENT;
  } else {
    return fail("unknown command '" + *command + "': expected begin, end or event");
  }
  if (c.subsystem_.empty()) return fail("--subsystem is required");
  if (c.category_.empty()) return fail("--category is required");
  if (c.type_ == LUMVANE_SIGNPOST_END && !c.id_)
    return fail("end needs the --id its begin printed");
  if (c.type_ != LUMVANE_SIGNPOST_EVENT && c.scope_ == LUMVANE_SIGNPOST_SCOPE_PROCESS &&
      c.objectPid_ == 0)
    return fail(std::string(scopeGiven ? "--scope process" : "process scope (the default)") +
                " without --pid: a begin and an end from two calls could never pair; use "
                "--scope system or --pid PID");
  return c;
}

lumvane_signpost SignpostCommandLine::signpost() const {
  return {subsystem_.c_str(), category_.c_str(), name_.c_str(), scope_, flags_};
}

lumvane_signpost_args SignpostCommandLine::args(const std::string& objectExe,
                                                const std::string& objectComm) const {
  lumvane_signpost_args a{};
  for (int i = 0; i < 2; ++i) {
    if (strings_[i]) a.strings[i] = {strings_[i]->first.c_str(), strings_[i]->second.c_str()};
    if (numberTexts_[i]) {
      a.numbers[i] = numbers_[i];
      a.numbers[i].name = numberTexts_[i]->first.c_str();
    }
  }
  attributes_.clear();
  for (const auto& [key, value] : attributeTexts_)
    attributes_.push_back({key.c_str(), value.c_str()});
  a.attributes = attributes_.data();
  a.attribute_count = attributes_.size();
  a.message = hasMessage_ ? message_.c_str() : nullptr;
  a.object_pid = objectPid_;
  a.object_exe = objectExe.empty() ? nullptr : objectExe.c_str();
  a.object_comm = objectComm.empty() ? nullptr : objectComm.c_str();
  return a;
}

const char* SignpostCommandLine::Usage() {
  return R"(Usage: lumvane-signpost begin|end|event --subsystem S --category C [OPTION]...

Marks a signpost in the systemd journal for lumvane. A begin and an end with
the same subsystem, category, name and ID form an interval; an event stands
alone. Each call is its own process, so a begin and its end pair only in
system scope or when both are sent on behalf of one process with --pid.

  --subsystem TEXT      subsystem (required)
  --category TEXT       category (required)
  --name TEXT           signpost name
  --id ID               signpost ID, a non-zero unsigned 64-bit decimal;
                        begin and event choose one when it is not given and
                        begin prints it; end requires it
  --scope SCOPE         process (the default) or system; thread is refused
  --pid PID             send on behalf of process PID (OBJECT_PID, with
                        OBJECT_EXE and OBJECT_COMM from /proc/PID where
                        readable); begins and ends in process scope need it
  --telemetry           allow the signpost to be reported (SIGNPOST_TELEMETRY=1)
  --animation           the begin opens an animation interval
  --string1 NAME=VALUE  first string argument (--string2: the second)
  --number1 NAME=NUMBER first number argument (--number2: the second): an
                        integer that fits 64 bits or a decimal number such as
                        -1.5e3
  --attribute KEY=VALUE interval attribute; repeatable, each key once
  --message TEXT        the MESSAGE line journalctl shows
  --help                show this help and exit

Arguments are stored in the journal like any log field and can be read by
whoever may read the journal: never pass secrets.

Exit status: 0 when the journal took the entry, 1 when it did not (no
journal running, or it refused the entry), 2 for bad usage.
)";
}

}  // namespace lumvane
