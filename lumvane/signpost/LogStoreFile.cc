#include "lumvane/signpost/LogStoreFile.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace lumvane {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

}  // namespace

LogStoreFile::LogStoreFile(size_t chunkBytes, size_t maxRecordBytes,
                           const std::atomic<bool>* stopRequested)
    : maxRecordBytes_(maxRecordBytes),
      stopRequested_(stopRequested),
      capacity_(chunkBytes < 16 ? 16 : chunkBytes),
      // Room for the longest allowed record and the byte after it, which
      // tells that the record has ended.
      holdLimit_(std::max(capacity_, maxRecordBytes + 1)) {}

LogStoreFile::~LogStoreFile() = default;

std::optional<Error> LogStoreFile::open(const std::string& path) {
  if (path == kStandardInput) {
    path_ = "standard input";
    fd_.reset(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    if (!fd_) return Error::fromErrno("cannot read " + path_, errno);
  } else {
    path_ = path;
    fd_.reset(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd_) return Error::fromErrno("cannot open " + path, errno);
  }
  struct stat st;
  if (::fstat(fd_.get(), &st) != 0) return Error::fromErrno("cannot read " + path_, errno);
  regular_ = S_ISREG(st.st_mode);
  if (!regular_ && path != kStandardInput) {
    fd_.reset();
    return Error("cannot read " + path + ": not a regular file");
  }
  if (regular_) (void)::posix_fadvise(fd_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  buf_.assign(capacity_ + kPadding, '\0');
  // Read until the first non-blank byte decides the framing (or the file
  // ends); blank bytes before it are dropped.
  for (;;) {
    while (scan_ < end_ && IsBlank(buf_[scan_])) ++scan_;
    begin_ = scan_;
    if (scan_ < end_ || eof_) break;
    if (!fill()) return readError_;  // a stop shows at the first next()
  }
  if (scan_ < end_ && buf_[scan_] == '[') {
    framing_ = Framing::JsonArray;
    depth_ = 1;
    begin_ = ++scan_;
  }
  return std::nullopt;
}

bool LogStoreFile::fill() {
  if (begin_ > 0) {
    std::memmove(buf_.data(), buf_.data() + begin_, end_ - begin_);
    scan_ -= begin_;
    end_ -= begin_;
    begin_ = 0;
  }
  if (end_ == capacity_) {
    if (capacity_ >= holdLimit_) {
      // The record under way is over the limit: drop what has been looked
      // at and remember that the record is incomplete.
      oversized_ = true;
      end_ -= scan_;
      std::memmove(buf_.data(), buf_.data() + scan_, end_);
      scan_ = 0;
    } else {
      capacity_ = std::min(capacity_ * 2, holdLimit_);
      buf_.resize(capacity_ + kPadding);
    }
  }
  for (;;) {
    if (stopRequested()) {
      stopped_ = true;
      return false;
    }
    if (!regular_ && !waitReadable()) return false;
    const ssize_t n = ::read(fd_.get(), buf_.data() + end_, capacity_ - end_);
    if (n > 0) {
      end_ += static_cast<size_t>(n);
      return true;
    }
    if (n == 0) {
      eof_ = true;
      return true;
    }
    if (errno == EINTR || errno == EAGAIN) continue;
    readError_ = Error::fromErrno("cannot read " + path_, errno);
    eof_ = true;
    return false;
  }
}

bool LogStoreFile::waitReadable() {
  for (;;) {
    struct pollfd p = {fd_.get(), POLLIN, 0};
    const int ready = ::poll(&p, 1, kPollMilliseconds);
    if (ready > 0) return true;  // data, end of file or an error for read()
    if (ready < 0 && errno != EINTR) {
      readError_ = Error::fromErrno("cannot read " + path_, errno);
      eof_ = true;
      return false;
    }
    if (stopRequested()) {
      stopped_ = true;
      return false;
    }
  }
}

LogStoreFile::Next LogStoreFile::emit(size_t start, size_t end, std::string_view* record) {
  if (oversized_ || end - start > maxRecordBytes_) {
    oversized_ = false;
    *record = {};
    return Next::Oversized;
  }
  while (start < end && IsBlank(buf_[start])) ++start;
  while (end > start && IsBlank(buf_[end - 1])) --end;
  *record = std::string_view(buf_.data() + start, end - start);
  return Next::Record;
}

LogStoreFile::Next LogStoreFile::next(std::string_view* record) {
  if (!fd_) return Next::End;
  if (readError_) return Next::Failed;
  if (stopped_) return Next::Stopped;
  return framing_ == Framing::Lines ? nextLine(record) : nextArrayElement(record);
}

LogStoreFile::Next LogStoreFile::nextLine(std::string_view* record) {
  for (;;) {
    const void* nl = scan_ < end_ ? std::memchr(buf_.data() + scan_, '\n', end_ - scan_) : nullptr;
    if (nl) {
      const size_t at = static_cast<size_t>(static_cast<const char*>(nl) - buf_.data());
      const size_t start = begin_;
      begin_ = scan_ = at + 1;
      const Next r = emit(start, at, record);
      if (r == Next::Record && record->empty()) continue;
      return r;
    }
    scan_ = end_;
    if (eof_) {
      if (readError_) return Next::Failed;
      if (begin_ == end_ && !oversized_) return Next::End;
      const size_t start = begin_;
      begin_ = end_;
      const Next r = emit(start, end_, record);
      if (r == Next::Record && record->empty()) return Next::End;
      return r;
    }
    if (!fill()) return halted();
  }
}

LogStoreFile::Next LogStoreFile::nextArrayElement(std::string_view* record) {
  for (;;) {
    while (scan_ < end_ && !arrayDone_) {
      const size_t i = scan_++;
      const char c = buf_[i];
      if (inString_) {
        if (escape_) {
          escape_ = false;
        } else if (c == '\\') {
          escape_ = true;
        } else if (c == '"') {
          inString_ = false;
        }
        continue;
      }
      if (IsBlank(c)) continue;
      if (depth_ == 1 && !inElement_) {
        if (c == ',') {
          begin_ = scan_;
          continue;
        }
        if (c == ']') {
          arrayDone_ = true;
          break;
        }
        inElement_ = true;
        scalarElement_ = c != '{' && c != '[';
        begin_ = i;
      }
      switch (c) {
        case '"':
          inString_ = true;
          break;
        case '{':
        case '[':
          ++depth_;
          break;
        case '}':
        case ']':
          if (depth_ > 1) --depth_;
          if (depth_ == 1 && !scalarElement_) {
            inElement_ = false;
            const size_t start = begin_;
            begin_ = scan_;
            return emit(start, scan_, record);
          }
          if (depth_ == 1 && scalarElement_ && c == ']') {
            // A scalar element ended by the close of the outer array.
            inElement_ = false;
            arrayDone_ = true;
            return emit(begin_, i, record);
          }
          break;
        case ',':
          if (depth_ == 1 && scalarElement_) {
            inElement_ = false;
            const size_t start = begin_;
            begin_ = scan_;
            return emit(start, i, record);
          }
          break;
        default:
          break;
      }
    }
    if (arrayDone_) return Next::End;
    if (!inElement_) begin_ = scan_;
    if (eof_) {
      if (readError_) return Next::Failed;
      if (!inElement_) return Next::End;
      // A truncated last element: handed out so that it is counted as bad.
      inElement_ = false;
      arrayDone_ = true;
      return emit(begin_, end_, record);
    }
    if (!fill()) return halted();
  }
}

}  // namespace lumvane
