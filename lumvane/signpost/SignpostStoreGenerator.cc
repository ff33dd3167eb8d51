#include "lumvane/signpost/SignpostStoreGenerator.h"

#include <cerrno>
#include <cstdio>
#include <vector>

#include "lumvane/signpost/LogStoreTimestamp.h"

namespace lumvane {
namespace {

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
  const T& pick(const T (&items)[N]) { return items[below(N)]; }

 private:
  uint64_t s_;
};

struct Process {
  uint64_t pid;
  const char* imagePath;
};
const Process kProcesses[] = {
    {201, "/usr/libexec/composerd"},         {344, "/opt/Gallery.AppDir/Gallery"},
    {512, "/opt/Mailbox.AppDir/Mailbox"},    {77, "/usr/sbin/netmond"},
    {903, "/usr/libexec/indexd"},            {1288, "/home/user/apps/Atlas.AppDir/Atlas"},
};

// Patterns expand to a format string and a message: {S1} {S2} {N1} {N2} are
// telemetry arguments, {A} a description attribute, {d} {s} plain
// placeholders and {p} a private one.
struct SignpostKind {
  const char* subsystem;
  const char* category;
  const char* name;
  const char* scope;
  bool animation;
  const char* pattern;
};
const SignpostKind kKinds[] = {
    {"com.orvel.storage", "Volume", "MountCheck", "process", false,
     "Checked volume Volume={S1} Mode={S2} in {d} passes, Errors={N1}; journal replay finished "
     "and the free-space map was rebuilt from the allocation bitmap"},
    {"com.orvel.gallery", "Rendering", "ThumbnailDecode", "thread", false,
     "Decoded thumbnail Format={S1} for asset {p} Bytes={N1} Scale={N2}; decoder reused a "
     "pooled surface and skipped colour conversion"},
    {"com.orvel.gallery", "Scrolling", "GridScroll", "process", true,
     "Grid scroll in section {s} Source={S1} Items={N1}; prefetch window moved by two rows"},
    {"com.orvel.mailbox", "Sync", "FolderSync", "process", false,
     "Synced folder Folder={S1} Account={S2} Messages={N1} Delta={N2} BundleIdOverride={A}; "
     "server offered condensed flags and the local cache stayed warm"},
    {"com.orvel.network", "Fetch", "RequestLoad", "process", false,
     "Loaded request Host={S1} Status={N1} Retries={N2} over {s}; connection was reused from "
     "the idle pool and the response was served from the validator path"},
    {"com.orvel.composer", "Animation", "WindowTransition", "system", true,
     "Window transition Kind={S1} Layers={N1} Style={A}; compositor promoted two layers"},
    {"com.orvel.indexer", "Index", "BatchIndex", "thread", false,
     "Indexed batch Store={S1} Documents={N1} Skipped={N2} in {d} ms; tokenizer cache hit rate "
     "stayed above the compaction threshold"},
    {"com.orvel.launch", "App", "ColdLaunch", "process", false,
     "Cold launch of {s} Phase={S1} Frames={N1}; first frame drawn after the main window was "
     "mapped"},
};
const char* const kEndPattern =
    "Finished Result={S2} Elapsed={d} ms Code={N2}; resources released and the work item was "
    "retired from the queue";

// Argument strings: the Cirros whitelist ("Root", "Ext"), their lower-case
// look-alikes, ordinary words and private-looking text.
const char* const kWhitelisted[] = {"Root", "Ext"};
const char* const kLookAlikes[] = {"root", "ext", "ROOT"};
const char* const kOrdinary[] = {"Jpeg", "Heic", "Inbox", "Archive", "wifi", "cellular",
                                 "Warm", "Cold", "Primary"};
const char* const kPrivate[] = {"alice.m@example.org", "/home/alice/Documents/taxes-2023.pdf",
                                "Alice's Phone", "+1 555 0100", "session-7f3a9c21e04b",
                                "Bob Example"};
const char* const kPlainWords[] = {"main", "recents", "favorites", "wifi", "Atlas", "inbox"};
const char* const kAttributes[] = {"com.orvel.gallery.widget", "compact", "fade", "slide"};

struct LogKind {
  const char* subsystem;
  const char* category;
  const char* format;
  const char* message;
};
const LogKind kLogLines[] = {
    {"com.orvel.network", "Request",
     "Request %{public}s finished with %{public}s after %d ms",
     "Request r42 finished with ok after 18 ms"},
    {"com.orvel.storage", "Cache", "Evicted %d entries from %{public}s (%llu bytes)",
     "Evicted 12 entries from thumbnails (4718592 bytes)"},
    {"com.orvel.mailbox", "Account", "Refreshing credentials for %{private}s",
     "Refreshing credentials for <private>"},
    {"com.orvel.launch", "Window", "Window %{public}s is now %{public}s",
     "Window main-window is now shown"},
};
const char* const kFiller[] = {
    "the scheduler kept the task on its preferred core",
    "no pressure notifications were pending at the time",
    "the request was coalesced with two earlier ones",
    "a background refresh was deferred to the next maintenance window",
    "memory footprint stayed below the soft limit",
    "the watchdog was fed before the deadline",
};

void AppendJsonString(std::string* out, std::string_view s) {
  out->push_back('"');
  for (char c : s) {
    if (c == '"' || c == '\\') {
      out->push_back('\\');
      out->push_back(c);
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out->append(buf);
    } else {
      out->push_back(c);
    }
  }
  out->push_back('"');
}

class Writer {
 public:
  Writer(const SignpostStoreGeneratorOptions& o, std::FILE* f)
      : o_(o), f_(f), random_(o.seed) {}

  uint64_t bytes() const { return bytes_; }

  void run() {
    write("lumvane signpost store export\nseed " + std::to_string(o_.seed) + ", " +
          std::to_string(o_.records) + " records, window ending " +
          FormatLogStoreTimestamp(o_.end, o_.offsetMinutes) + "\n");
    const int64_t span = int64_t{86400} * 1000000;
    const int64_t step = o_.records ? span / static_cast<int64_t>(o_.records) : span;
    const Date start = o_.end - std::chrono::microseconds(span);
    for (uint64_t i = 0; i < o_.records; ++i) {
      index_ = i;
      now_ = start + std::chrono::microseconds(static_cast<int64_t>(i) * step +
                                               static_cast<int64_t>(random_.below(step / 2 + 1)));
      record();
    }
    write("{\"count\":" + std::to_string(o_.records) + ",\"finished\":1}\n");
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
  };

  void record() {
    for (size_t k = 0; k < open_.size(); ++k) {
      if (open_[k].nextAt > index_) continue;
      Open& o = open_[k];
      if (o.framesLeft > 0) {
        --o.framesLeft;
        o.nextAt = index_ + 1 + random_.below(4);
        signpost(o, "event", std::string("Frame presented after {d} us; ") + random_.pick(kFiller), true);
      } else {
        signpost(o, "end", kEndPattern);
        open_.erase(open_.begin() + static_cast<long>(k));
      }
      return;
    }
    const uint64_t r = random_.below(1000);
    if (r < 4) return malformed();
    if (r < 380 || (r >= 600 && open_.size() >= 32)) return logLine();
    Open o;
    o.kind = random_.below(std::size(kKinds));
    o.id = random_.next();
    o.process = &random_.pick(kProcesses);
    o.thread = o.process->pid * 100 + random_.below(8);
    o.telemetry = o_.accept && random_.below(100) < 75;
    if (r < 600) return signpost(o, "event", kKinds[o.kind].pattern);
    o.nextAt = index_ + 1 + random_.below(40);
    o.framesLeft = kKinds[o.kind].animation ? 1 + random_.below(8) : 0;
    signpost(o, "begin", kKinds[o.kind].pattern);
    open_.push_back(o);
  }

  // Expands a pattern into the format string and the message it produced.
  void expand(std::string_view pattern, std::string* format, std::string* message) {
    for (size_t i = 0; i < pattern.size(); ++i) {
      if (pattern[i] != '{') {
        format->push_back(pattern[i]);
        message->push_back(pattern[i]);
        continue;
      }
      const size_t close = pattern.find('}', i);
      const std::string_view token = pattern.substr(i + 1, close - i - 1);
      i = close;
      if (token == "S1" || token == "S2") {
        format->append(token == "S1" ? "%{public,signpost.telemetry:string1}s"
                                     : "%{public,signpost.telemetry:string2}s");
        const uint64_t c = random_.below(100);
        message->append(c < 40 ? random_.pick(kWhitelisted)
                        : c < 55 ? random_.pick(kLookAlikes)
                        : c < 85 ? random_.pick(kOrdinary)
                                 : random_.pick(kPrivate));
      } else if (token == "N1") {
        format->append("%{public,signpost.telemetry:number1}llu");
        message->append(std::to_string(random_.below(5000000)));
      } else if (token == "N2") {
        format->append("%{public,signpost.telemetry:number2}lld");
        message->append(std::to_string(static_cast<int64_t>(random_.below(2000)) - 1000));
      } else if (token == "A") {
        format->append("%{public,signpost.description:attribute}s");
        message->append(random_.pick(kAttributes));
      } else if (token == "d") {
        format->append("%d");
        message->append(std::to_string(random_.below(900)));
      } else if (token == "s") {
        format->append("%{public}s");
        message->append(random_.pick(kPlainWords));
      } else {
        format->append("%{private}s");
        message->append("<private>");
      }
    }
  }

  void signpost(const Open& o, const char* type, std::string_view pattern, bool frame = false) {
    const SignpostKind& k = kKinds[o.kind];
    std::string format, message;
    expand(pattern, &format, &message);
    const bool begin = type[0] == 'b';
    if (begin && k.animation) {
      format += " isAnimation=YES";
      message += " isAnimation=YES";
    }
    if (o.telemetry && !frame) {
      format += " enableTelemetry=YES";
      message += " enableTelemetry=YES";
    }
    line_.clear();
    head("signpostEvent");
    line_ += ",\"signpostType\":\"";
    line_ += type;
    line_ += "\",\"signpostID\":" + std::to_string(o.id) + ",\"signpostName\":\"" + k.name +
             "\",\"signpostScope\":\"" + k.scope + "\"";
    tail(k.subsystem, k.category, *o.process, o.thread, format, message);
  }

  void logLine() {
    const LogKind& k = random_.pick(kLogLines);
    const Process& p = random_.pick(kProcesses);
    std::string message = std::string(k.message) + "; " + random_.pick(kFiller) + ", " +
                          random_.pick(kFiller) + ", " + random_.pick(kFiller) + ", and " +
                          random_.pick(kFiller);
    line_.clear();
    head("logEvent");
    tail(k.subsystem, k.category, p, p.pid * 100, k.format, message);
  }

  void malformed() {
    const Process& p = random_.pick(kProcesses);
    line_.clear();
    head("signpostEvent");
    if (random_.below(2)) {
      // Cut short in the middle of a field, as a crashed writer leaves it.
      line_ += ",\"signpostType\":\"begin\",\"signpostID\":12,\"subsys";
      line_ += '\n';
      write(line_);
    } else {
      // A signpost without subsystem and category.
      line_ += ",\"signpostType\":\"event\",\"signpostID\":5,\"signpostName\":\"Orphan\"";
      line_ += ",\"processID\":" + std::to_string(p.pid) + "}\n";
      write(line_);
    }
  }

  void head(const char* eventType) {
    line_ += "{\"timestamp\":\"";
    line_ += FormatLogStoreTimestamp(now_, o_.offsetMinutes);
    line_ += "\",\"eventType\":\"";
    line_ += eventType;
    line_ += '"';
  }

  void tail(const char* subsystem, const char* category, const Process& p, uint64_t thread,
            std::string_view format, std::string_view message) {
    line_ += ",\"subsystem\":\"";
    line_ += subsystem;
    line_ += "\",\"category\":\"";
    line_ += category;
    line_ += "\",\"processID\":" + std::to_string(p.pid) +
             ",\"threadID\":" + std::to_string(thread) + ",\"processImagePath\":";
    AppendJsonString(&line_, p.imagePath);
    line_ += ",\"formatString\":";
    AppendJsonString(&line_, format);
    line_ += ",\"eventMessage\":";
    AppendJsonString(&line_, message);
    line_ += "}\n";
    write(line_);
  }

  void write(const std::string& s) {
    bytes_ += std::fwrite(s.data(), 1, s.size(), f_);
  }

  const SignpostStoreGeneratorOptions& o_;
  std::FILE* f_;
  Random random_;
  uint64_t index_ = 0;
  Date now_{};
  std::vector<Open> open_;
  std::string line_;
  uint64_t bytes_ = 0;

};

}  // namespace

SignpostStoreGenerator::SignpostStoreGenerator(SignpostStoreGeneratorOptions options)
    : options_(options) {}

std::optional<Error> SignpostStoreGenerator::writeTo(const std::string& path) {
  const bool toStdout = path == "-";
  std::FILE* f = toStdout ? stdout : std::fopen(path.c_str(), "w");
  if (!f) return Error::fromErrno("cannot create " + path, errno);
  std::vector<char> buffer(size_t{1} << 20);
  if (!toStdout) std::setvbuf(f, buffer.data(), _IOFBF, buffer.size());
  Writer writer(options_, f);
  writer.run();
  bytes_ = writer.bytes();
  const bool failed = std::ferror(f) != 0;
  const int err = errno;
  const bool closeFailed = toStdout ? std::fflush(f) != 0 : std::fclose(f) != 0;
  if (failed || closeFailed) return Error::fromErrno("cannot write " + path, failed ? err : errno);
  return std::nullopt;
}

}  // namespace lumvane
