#include "upload/Uploader.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "fleet/FleetLog.h"
#include "fleet/SubjectToken.h"

namespace lumvane::upload {
namespace {

using Clock = std::chrono::steady_clock;
using fleet::FleetLog;

bool SameCursor(const UploadCursor& a, const UploadCursor& b) {
  return a.generation == b.generation && a.offset == b.offset && a.droppedEvents == b.droppedEvents &&
         a.droppedBytes == b.droppedBytes && a.malformedLines == b.malformedLines &&
         a.tornBytes == b.tornBytes && a.connection == b.connection && a.server == b.server;
}

// "<key>-<generation>-<offset>" back into its numbers.
bool ParseMessageId(std::string_view id, uint64_t* generation, uint64_t* offset) {
  const std::size_t last = id.rfind('-');
  if (last == std::string_view::npos || last == 0) return false;
  const std::size_t before = id.rfind('-', last - 1);
  if (before == std::string_view::npos) return false;
  *generation = std::strtoull(std::string(id.substr(before + 1, last - before - 1)).c_str(), nullptr, 10);
  *offset = std::strtoull(std::string(id.substr(last + 1)).c_str(), nullptr, 10);
  return true;
}

}  // namespace

Uploader::Uploader(UploadSettings settings, std::string machineKey)
    : settings_(std::move(settings)),
      machineKey_(fleet::EscapeSubjectToken(machineKey)),
      paths_(settings_.spoolDirectory),
      backoff_(std::make_shared<fleet::Backoff>(settings_.connection.backoff)),
      follower_(paths_) {
  jsOptions_Init(&jsOptions_);
  jsOptions_.PublishAsync.AckHandler = &Uploader::OnAck;
  jsOptions_.PublishAsync.AckHandlerClosure = this;
  // Our window is the bound. The library counts a message as pending until
  // its acknowledgement handler has returned, a moment after we have seen
  // the acknowledgement; with the same limit it would stall publishes.
  jsOptions_.PublishAsync.MaxPending = settings_.window * 2;
}

Uploader::~Uploader() { connection_.reset(); }

void Uploader::OnAck(jsCtx*, natsMsg* msg, jsPubAck* pa, jsPubAckErr* pae, void* closure) {
  auto* self = static_cast<Uploader*>(closure);
  const char* id = nullptr;
  uint64_t generation = 0, offset = 0;
  bool wake = false;
  if (natsMsgHeader_Get(msg, "Nats-Msg-Id", &id) == NATS_OK && id &&
      ParseMessageId(id, &generation, &offset)) {
    std::lock_guard<std::mutex> lock(self->mu_);
    auto it = self->inFlight_.find(offset);
    if (generation == self->inFlightGeneration_ && it != self->inFlight_.end() &&
        it->second.state == State::Pending) {
      it->second.state = pa && !pae ? State::Done : State::Failed;
      if (it->second.state == State::Failed) {
        self->failures_ = true;
        if (pae) {
          self->ackError_ = fleet::NatsErrorText(pae->Err);
          if (pae->ErrText && *pae->ErrText) self->ackError_ += std::string(": ") + pae->ErrText;
        }
      }
      ++self->completions_;
      // Only the acknowledgement the main thread waits for wakes it: one
      // wake-up per acknowledgement would cost a context switch each.
      wake = self->completions_ == self->wakeAt_;
    }
  }
  natsMsg_Destroy(msg);
  if (wake) self->wake_.notify_one();
}

std::optional<Error> Uploader::run(const std::atomic<bool>& stop) {
  if (g_mkdir_with_parents(paths_.directory.c_str(), 0755) != 0) {
    return Error::fromErrno("cannot create " + paths_.directory, errno);
  }
  // One uploader per spool: the lock is held until the process ends.
  int lockFd = ::open(paths_.lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (lockFd < 0) return Error::fromErrno("cannot open " + paths_.lock, errno);
  if (::flock(lockFd, LOCK_EX | LOCK_NB) != 0) {
    ::close(lockFd);
    return Error("another lumvane-upload is running on " + paths_.directory + " (" + paths_.lock + " is locked)");
  }
  if (auto error = ReadUploadCursor(paths_, &cursor_)) return error;
  bool replaced = false;
  if (auto error = follower_.start(&cursor_, &replaced)) return error;
  if (replaced) {
    FleetLog(paths_.events + " does not match the saved position; it was replaced, so uploading starts over at generation " +
             std::to_string(cursor_.generation));
  }
  {
    std::lock_guard<std::mutex> lock(mu_);
    inFlightGeneration_ = cursor_.generation;
  }
  lastGrowth_ = Clock::now();
  std::optional<Error> failure;
  while (!stop.load() && !failure) {
    const auto now = Clock::now();
    keepConnected();
    enforceCap();
    const bool connected = connection_ && connection_->state() == fleet::ConnectionState::Connected;
    advanceCursor();  // frees the window
    bool windowFull = false;
    if (connected) {
      resendFailed();
      publishNew(&windowFull);
    }
    advanceCursor();
    failure = rotateOrFinish(now);
    saveCursor(false);
    // With the window full, sleep until a quarter of it has completed;
    // otherwise the spool is read to its end: look again after a poll
    // interval.
    std::unique_lock<std::mutex> lock(mu_);
    wakeAt_ = windowFull ? completionsMark_ + std::max<int64_t>(1, settings_.window / 4) : UINT64_MAX;
    wake_.wait_for(lock, std::chrono::milliseconds(settings_.pollIntervalMs),
                   [&] { return completions_ >= wakeAt_ || stop.load(); });
    wakeAt_ = UINT64_MAX;
  }
  // Give outstanding acknowledgements a moment, then save where we are.
  const auto deadline = Clock::now() + std::chrono::milliseconds(std::min<int64_t>(settings_.ackWaitMs, 2000));
  while (inFlight() > 0 && Clock::now() < deadline && connection_) {
    advanceCursor();
    std::unique_lock<std::mutex> lock(mu_);
    wake_.wait_for(lock, std::chrono::milliseconds(20));
  }
  advanceCursor();
  dropConnection();
  cursor_.connection = "not running";
  saveCursor(true);
  ::close(lockFd);
  return failure;
}

void Uploader::keepConnected() {
  if (connection_ && connection_->state() == fleet::ConnectionState::Closed) {
    FleetLog("the connection to " + connection_->url() + " was closed; opening a new one");
    dropConnection();
  }
  const auto now = Clock::now();
  if (!connection_ && now >= nextConnect_) {
    std::optional<Error> error = fleet::FleetConnection::Open(settings_.connection, backoff_, &jsOptions_, &connection_);
    if (error) {
      ++connectFailures_;
      if (error->description() != lastConnectError_) {
        lastConnectError_ = error->description();
        FleetLog(lastConnectError_ + "; retrying with backoff");
      }
      nextConnect_ = now + backoff_->delay(connectFailures_);
    } else {
      connectFailures_ = 0;
      lastConnectError_.clear();
    }
  }
  cursor_.connection = connection_ ? fleet::ConnectionStateName(connection_->state())
                                   : (connectFailures_ > 0 ? "disconnected" : "connecting");
  cursor_.server = connection_ ? connection_->url() : settings_.connection.serverList();
}

void Uploader::dropConnection() {
  connection_.reset();
  // Whatever was awaiting an acknowledgement on it must go out again.
  std::lock_guard<std::mutex> lock(mu_);
  for (auto& [offset, entry] : inFlight_) {
    if (entry.state == State::Pending) {
      entry.state = State::Failed;
      failures_ = true;
      ackError_ = "the connection was dropped before the acknowledgement";
    }
  }
}

std::size_t Uploader::inFlight() {
  std::lock_guard<std::mutex> lock(mu_);
  return inFlight_.size();
}

void Uploader::enforceCap() {
  const uint64_t cap = static_cast<uint64_t>(settings_.unsentCapBytes);
  uint64_t unread = follower_.unreadBytes();
  if (unread <= cap) return;
  uint64_t events = 0, bytes = 0;
  while (unread > cap) {
    std::optional<SpoolFollower::Line> line = follower_.next();
    if (!line) break;
    ++events;
    bytes += line->length + 1;
    unread -= std::min<uint64_t>(unread, line->length + 1);
  }
  if (unread > cap && follower_.sealed()) {
    // The rest is in the next generation, behind lines sent but never
    // acknowledged: those are the oldest unsent now.
    std::lock_guard<std::mutex> lock(mu_);
    for (auto& [offset, entry] : inFlight_) {
      if (entry.state != State::Failed) continue;
      entry.state = State::Done;
      ++events;
      bytes += entry.length + 1;
    }
  }
  if (events == 0) return;
  cursor_.droppedEvents += events;
  cursor_.droppedBytes += bytes;
  FleetLog("dropped the " + std::to_string(events) + " oldest unsent events (" + std::to_string(bytes) +
           " bytes) over the unsent cap of " + std::to_string(cap) + " bytes; " +
           std::to_string(cursor_.droppedEvents) + " dropped in all");
}

std::size_t Uploader::publishNew(bool* windowFull) {
  std::size_t sent = 0;
  *windowFull = false;
  for (;;) {
    {
      std::lock_guard<std::mutex> lock(mu_);
      if (inFlight_.size() >= static_cast<std::size_t>(settings_.window)) {
        *windowFull = true;
        completionsMark_ = completions_;
        break;
      }
    }
    std::optional<SpoolFollower::Line> line = follower_.next();
    if (!line) break;
    publish(line->offset, line->data, line->length, line->capacity);
    ++sent;
  }
  return sent;
}

void Uploader::resendFailed() {
  const auto now = Clock::now();
  std::vector<std::pair<uint64_t, uint32_t>> again;
  {
    std::lock_guard<std::mutex> lock(mu_);
    if (!failures_ || now - lastResend_ < settings_.connection.backoff.initial) return;
    for (const auto& [offset, entry] : inFlight_) {
      if (entry.state == State::Failed) again.emplace_back(offset, entry.length);
    }
    failures_ = false;
  }
  lastResend_ = now;
  std::string reason;
  {
    std::lock_guard<std::mutex> lock(mu_);
    reason = ackError_;
  }
  if (reason != loggedAckError_) {
    loggedAckError_ = reason;
    FleetLog("publishes to " + connection_->url() + " failed (" + reason + "); sending " +
             std::to_string(again.size()) + " events again");
  }
  for (const auto& [offset, length] : again) {
    std::string line;
    if (auto error = follower_.readAt(offset, length, &line)) {
      FleetLog(error->description());
      std::lock_guard<std::mutex> lock(mu_);
      failures_ = true;
      return;
    }
    simdjson::padded_string padded(line);
    publish(offset, padded.data(), padded.size(), padded.size() + simdjson::SIMDJSON_PADDING);
  }
}

Uploader::Sent Uploader::publish(uint64_t offset, const char* data, std::size_t length, std::size_t capacity) {
  std::string_view name;
  simdjson::ondemand::document doc;
  const bool wellFormed = !parser_.iterate(data, length, capacity).get(doc) && !doc["name"].get_string().get(name);
  const bool fits = static_cast<int64_t>(length) <= natsConnection_GetMaxPayload(connection_->connection());
  if (!wellFormed || !fits) {
    ++cursor_.malformedLines;
    FleetLog("skipping the line at byte " + std::to_string(offset) + " of generation " +
             std::to_string(follower_.generation()) + " of " + paths_.events + ": " +
             (wellFormed ? "larger than the server accepts" : "not an event"));
    std::lock_guard<std::mutex> lock(mu_);
    if (inFlight_.erase(offset)) ++completions_;
    return Sent::Skipped;
  }
  const std::string subject = "lumvane." + machineKey_ + "." + fleet::EscapeSubjectToken(name);
  const std::string id = machineKey_ + "-" + std::to_string(follower_.generation()) + "-" + std::to_string(offset);
  natsMsg* msg = nullptr;
  natsStatus s = natsMsg_Create(&msg, subject.c_str(), nullptr, data, static_cast<int>(length));
  if (s == NATS_OK) {
    jsPubOptions options;
    jsPubOptions_Init(&options);
    options.MsgId = id.c_str();
    options.MaxWait = settings_.ackWaitMs;
    {
      // Entered before the publish: the acknowledgement may come first.
      std::lock_guard<std::mutex> lock(mu_);
      inFlight_[offset] = Entry{static_cast<uint32_t>(length), State::Pending};
    }
    s = js_PublishMsgAsync(connection_->jetStream(), &msg, &options);
  }
  if (s == NATS_OK) return Sent::Published;
  natsMsg_Destroy(msg);
  std::lock_guard<std::mutex> lock(mu_);
  inFlight_[offset] = Entry{static_cast<uint32_t>(length), State::Failed};
  failures_ = true;
  return Sent::Failed;
}

void Uploader::advanceCursor() {
  std::lock_guard<std::mutex> lock(mu_);
  while (!inFlight_.empty() && inFlight_.begin()->second.state == State::Done) inFlight_.erase(inFlight_.begin());
  cursor_.offset = inFlight_.empty() ? follower_.readOffset() : inFlight_.begin()->first;
}

std::optional<Error> Uploader::rotateOrFinish(Clock::time_point now) {
  const uint64_t size = follower_.fileSize();
  if (size != lastSize_) {
    lastSize_ = size;
    lastGrowth_ = now;
  }
  const bool allAcknowledged = inFlight() == 0 && cursor_.offset == follower_.readOffset();
  if (follower_.sealed()) {
    if (!allAcknowledged || follower_.hasLine()) return std::nullopt;
    const uint64_t torn = follower_.tornTail();
    if (torn > 0) {
      FleetLog("not publishing a torn last line of " + std::to_string(torn) + " bytes in generation " +
               std::to_string(follower_.generation()) + " of " + paths_.events);
      cursor_.tornBytes += torn;
    }
    // The cursor names the next generation before the old file goes, so a
    // crash in between finds an old file it knows to remove.
    cursor_.generation = follower_.generation() + 1;
    cursor_.offset = 0;
    saveCursor(true);
    if (!SameCursor(cursor_, savedCursor_)) return Error("cannot save " + paths_.cursor + "; stopping");
    if (auto error = follower_.nextGeneration()) return error;
    std::lock_guard<std::mutex> lock(mu_);
    inFlightGeneration_ = follower_.generation();
    lastSize_ = 0;
    return std::nullopt;
  }
  const bool big = size >= static_cast<uint64_t>(settings_.rotateBytes);
  const bool idle = size > 0 && allAcknowledged && !follower_.hasLine() &&
                    now - lastGrowth_ >= std::chrono::milliseconds(settings_.idleRotateMs);
  if (big || idle) {
    if (auto error = follower_.rotate()) FleetLog(error->description());
  }
  return std::nullopt;
}

void Uploader::saveCursor(bool force) {
  const auto now = Clock::now();
  if (SameCursor(cursor_, savedCursor_)) return;
  if (!force && now - lastSave_ < std::chrono::milliseconds(settings_.cursorSyncMs)) return;
  if (auto error = WriteUploadCursor(paths_, cursor_)) {
    FleetLog(error->description());
    return;
  }
  savedCursor_ = cursor_;
  lastSave_ = now;
}

}  // namespace lumvane::upload
