// lumvane-upload's engine: follows the spool (SpoolFollower) and publishes
// every complete line to JetStream, at least once.
//
// Publishes are pipelined: up to `window` lines await their acknowledgement
// at once, each with a finite wait (AckWaitMs) after which the library
// reports it failed, so a message lost in a server restart is re-sent rather
// than forgotten. Every re-send of a line carries the same message ID,
// "<machine key>-<generation>-<offset>", which the stream uses to drop
// duplicates. The cursor moves past a line only when that line and every
// line before it are acknowledged (or dropped), and is saved at most every
// CursorSyncMs; after a crash the uploader resumes from it.
//
// Beyond the unsent cap the oldest unsent lines are dropped, counted in the
// cursor and logged. Acknowledged files are reclaimed by rotation (see
// SpoolFollower.h).
//
// Threading: run() owns the spool, the cursor and the connection on the
// caller's thread; the client library calls the acknowledgement handler on a
// thread of its own, which only touches the in-flight table under mu_.
#pragma once

#include <nats/nats.h>
#include <simdjson.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "fleet/Backoff.h"
#include "fleet/FleetConnection.h"
#include "upload/SpoolFollower.h"
#include "upload/UploadCursor.h"
#include "upload/UploadSettings.h"

namespace lumvane::upload {

class Uploader final {
 public:
  Uploader(UploadSettings settings, std::string machineKey);
  ~Uploader();
  Uploader(const Uploader&) = delete;
  Uploader& operator=(const Uploader&) = delete;

  // Runs until `stop` turns true, then waits a little for outstanding
  // acknowledgements and saves the cursor. An error means the spool or the
  // cursor cannot be used at all.
  [[nodiscard]] std::optional<Error> run(const std::atomic<bool>& stop);

 private:
  enum class State { Pending, Done, Failed };
  struct Entry {
    uint32_t length;
    State state;
  };

  static void OnAck(jsCtx* js, natsMsg* msg, jsPubAck* pa, jsPubAckErr* pae, void* closure);

  void keepConnected();
  void dropConnection();
  void enforceCap();
  // Publishes new lines while the window has room; returns how many, and
  // whether it stopped at a full window (rather than the spool's end).
  std::size_t publishNew(bool* windowFull);
  void resendFailed();
  // Publishes one line; false when the line is malformed or too big (then
  // it is counted and needs no acknowledgement).
  enum class Sent { Published, Skipped, Failed };
  Sent publish(uint64_t offset, const char* data, std::size_t length, std::size_t capacity);
  void advanceCursor();
  [[nodiscard]] std::optional<Error> rotateOrFinish(std::chrono::steady_clock::time_point now);
  void saveCursor(bool force);
  std::size_t inFlight();

  const UploadSettings settings_;
  const std::string machineKey_;  // already a safe subject token
  const SpoolPaths paths_;
  std::shared_ptr<fleet::Backoff> backoff_;
  jsOptions jsOptions_;
  std::unique_ptr<fleet::FleetConnection> connection_;
  int connectFailures_ = 0;
  std::chrono::steady_clock::time_point nextConnect_{};
  std::string lastConnectError_;

  SpoolFollower follower_;
  UploadCursor cursor_;
  UploadCursor savedCursor_;
  std::chrono::steady_clock::time_point lastSave_{};
  std::chrono::steady_clock::time_point lastGrowth_{};
  uint64_t lastSize_ = 0;
  bool loggedCap_ = false;

  std::mutex mu_;
  std::condition_variable wake_;
  std::map<uint64_t, Entry> inFlight_;  // by offset, current generation only
  uint64_t inFlightGeneration_ = 0;     // acks of other generations are stale
  bool failures_ = false;               // some entry is Failed
  uint64_t completions_ = 0;            // acks and failures so far
  uint64_t completionsMark_ = 0;        // completions_ when the window filled
  uint64_t wakeAt_ = UINT64_MAX;        // completions_ the main thread waits for
  std::string ackError_;                // the latest failure's reason
  std::chrono::steady_clock::time_point lastResend_{};
  std::string loggedAckError_;          // main thread only
  simdjson::ondemand::parser parser_;  // main thread only
};

}  // namespace lumvane::upload
