#include "collect/Collector.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "collect/FleetEventDecoder.h"
#include "fleet/FleetConnection.h"
#include "fleet/FleetLog.h"
#include "fleet/NatsHandles.h"

namespace lumvane::collect {

struct CollectSession {
  std::unique_ptr<fleet::FleetConnection> connection;
  fleet::NatsSubscriptionPtr subscription;
};

struct FetchedBatch {
  std::unique_ptr<fleet::NatsMsgListHolder> messages;  // null once settled
  StoreBatch store;                                    // what the messages decode to
};

namespace {

constexpr int64_t kMicrosecondsPerDay = 86400LL * 1000000;
constexpr int64_t kPruneIntervalMicroseconds = 3600LL * 1000000;

int64_t NowMicroseconds() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// Sleeps `ms` in short steps, returning early once `stop` is set.
void SleepUnlessStopped(std::chrono::milliseconds ms, const std::atomic<bool>& stop) {
  const auto until = std::chrono::steady_clock::now() + ms;
  while (!stop.load() && std::chrono::steady_clock::now() < until) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

// The message's ID header, valid while `msg` lives, or one made in
// `fallback` from the stream sequence.
std::string_view MessageId(natsMsg* msg, std::string* fallback) {
  const char* id = nullptr;
  if (natsMsgHeader_Get(msg, "Nats-Msg-Id", &id) == NATS_OK && id && *id) return id;
  // Not published by lumvane-upload: the stream sequence is still unique.
  jsMsgMetaData* meta = nullptr;
  if (natsMsg_GetMetaData(&meta, msg) != NATS_OK) return {};
  *fallback = std::string(meta->Stream) + ":" + std::to_string(meta->Sequence.Stream);
  jsMsgMetaData_Destroy(meta);
  return *fallback;
}

}  // namespace

Collector::Collector(fleet::ConnectionSettings settings, CollectorOptions options, EventStore* store)
    : settings_(std::move(settings)), options_(std::move(options)), store_(store) {}

void Collector::logOnce(const std::string& message) {
  if (message == lastLogged_) return;
  lastLogged_ = message;
  fleet::FleetLog(message);
}

void Collector::prune() {
  const int64_t now = NowMicroseconds();
  if (now - lastPruneMicroseconds_ < kPruneIntervalMicroseconds) return;
  lastPruneMicroseconds_ = now;
  int64_t deleted = 0;
  // Whole UTC days: today and the keepDays days before it stay.
  if (auto error = store_->deleteDaysBefore(UtcDay(now - options_.keepDays * kMicrosecondsPerDay), &deleted)) {
    fleet::FleetLog("cannot delete old events: " + error->description());
  } else if (deleted > 0) {
    fleet::FleetLog("deleted " + std::to_string(deleted) + " events older than " +
                    std::to_string(options_.keepDays) + " days");
  }
}

std::optional<Error> Collector::bind(CollectSession& session, bool* retry) {
  *retry = true;
  jsCtx* js = session.connection->jetStream();
  const std::string server = session.connection->url();
  jsConsumerInfo* rawInfo = nullptr;
  jsErrCode code = static_cast<jsErrCode>(0);
  natsStatus s = js_GetConsumerInfo(&rawInfo, js, fleet::kStreamName, options_.consumer.c_str(), nullptr, &code);
  fleet::JsConsumerInfoPtr info(rawInfo);
  if (s == NATS_NOT_FOUND) {
    // Created here, explicitly: a consumer the client library made for a
    // subscription would be deleted with it.
    jsConsumerConfig config;
    jsConsumerConfig_Init(&config);
    config.Durable = options_.consumer.c_str();
    config.AckPolicy = js_AckExplicit;
    config.DeliverPolicy = js_DeliverAll;
    config.AckWait = options_.ackWaitMs * 1000000;  // ns
    config.FilterSubject = fleet::kStreamSubjects;
    config.MaxAckPending = std::max<int64_t>(options_.batch * 4, 1000);
    s = js_AddConsumer(&rawInfo, js, fleet::kStreamName, &config, nullptr, &code);
    info.reset(rawInfo);
    if (s == NATS_OK) fleet::FleetLog("created consumer " + options_.consumer + " on " + server);
  }
  if (s != NATS_OK) {
    if (code != 0 && s != NATS_TIMEOUT && s != NATS_CONNECTION_CLOSED && s != NATS_CONNECTION_DISCONNECTED) {
      *retry = false;
    }
    return Error("cannot set up consumer " + options_.consumer + " on " + server + ": " + fleet::NatsErrorText(s));
  }
  if (info->Config && info->Config->AckPolicy != js_AckExplicit) {
    *retry = false;
    return Error("consumer " + options_.consumer + " on " + server +
                 " does not use explicit acknowledgements; give this collector another --consumer");
  }
  jsSubOptions subOptions;
  jsSubOptions_Init(&subOptions);
  subOptions.Stream = fleet::kStreamName;
  subOptions.Consumer = options_.consumer.c_str();  // bind only, never create
  subOptions.ManualAck = true;
  natsSubscription* sub = nullptr;
  s = js_PullSubscribe(&sub, js, fleet::kStreamSubjects, options_.consumer.c_str(), nullptr, &subOptions, &code);
  session.subscription.reset(sub);
  if (s != NATS_OK) {
    return Error("cannot subscribe to consumer " + options_.consumer + " on " + server + ": " +
                 fleet::NatsErrorText(s));
  }
  return std::nullopt;
}

std::optional<Error> Collector::run(const std::atomic<bool>& stop) {
  auto backoff = std::make_shared<fleet::Backoff>(settings_.backoff);
  int failures = 0;
  while (!stop.load()) {
    prune();
    CollectSession session;
    session.connection = fleet::FleetConnection::OpenRetrying(settings_, backoff, nullptr, stop);
    if (!session.connection) break;  // stopped
    bool retry = true;
    if (auto error = bind(session, &retry)) {
      if (!retry) return error;
      logOnce(error->description() + "; retrying");
      SleepUnlessStopped(backoff->delay(++failures), stop);
      continue;
    }
    failures = 0;
    logOnce("collecting from " + session.connection->url() + " with consumer " + options_.consumer);
    switch (collect(session, stop)) {
      case Outcome::Stopped:
      case Outcome::Drained:
        // Send the last acknowledgements before the connection goes.
        (void)natsConnection_FlushTimeout(session.connection->connection(), 2000);
        return std::nullopt;
      case Outcome::Abandoned:
        return std::nullopt;
      case Outcome::Reconnect:
        break;
    }
  }
  return std::nullopt;
}

// Fetch and decode batch n+1 while the writer commits batch n; then, once
// n has committed, hand n+1 to the writer and acknowledge n. The client
// library's pull subscription and its messages stay on this one thread.
Collector::Outcome Collector::collect(CollectSession& session, const std::atomic<bool>& stop) {
  FleetEventDecoder decoder;
  // Two batches take turns, so that their buffers are reused.
  FetchedBatch batches[2];
  FetchedBatch* inFlight = nullptr;  // with the writer, or committed and not yet settled
  auto backoff = std::make_shared<fleet::Backoff>(settings_.backoff);
  int failures = 0;
  BatchWriter writer(store_, [this](const StoreBatch& batch, int64_t inserted) {
    counts_.stored += inserted;
    counts_.rejected += static_cast<int64_t>(batch.rejected.size());
    return options_.afterCommit ? options_.afterCommit() : true;
  });
  // Waits for the batch in flight and acknowledges it (or not); false when
  // `afterCommit` asked to stop.
  auto settleInFlight = [&] {
    if (!inFlight) return true;
    FetchedBatch* batch = std::exchange(inFlight, nullptr);
    return settle(*batch, writer.wait(), &failures, *backoff, stop);
  };
  Outcome outcome = Outcome::Stopped;
  while (!stop.load()) {
    // A pull subscription is not carried across the client library's own
    // reconnect (that path corrupts its heap now and then): once the
    // connection is lost, the session is dropped and opened afresh. What
    // was fetched and not acknowledged comes again after the ack wait.
    if (session.connection->state() != fleet::ConnectionState::Connected) {
      outcome = Outcome::Reconnect;
      break;
    }
    FetchedBatch& next = inFlight == &batches[0] ? batches[1] : batches[0];
    next.messages = std::make_unique<fleet::NatsMsgListHolder>();
    jsErrCode code = static_cast<jsErrCode>(0);
    natsStatus s = natsSubscription_Fetch(next.messages->get(), session.subscription.get(), options_.batch,
                                          options_.fetchWaitMs, &code);
    if (s == NATS_TIMEOUT || (s == NATS_OK && (*next.messages)->Count == 0)) {
      failures = 0;
      next.messages.reset();
      if (!settleInFlight()) return Outcome::Abandoned;
      prune();  // the writer is idle
      if (options_.drain) {
        jsConsumerInfo* raw = nullptr;
        if (js_GetConsumerInfo(&raw, session.connection->jetStream(), fleet::kStreamName,
                               options_.consumer.c_str(), nullptr, &code) == NATS_OK) {
          fleet::JsConsumerInfoPtr info(raw);
          if (info->NumPending == 0 && info->NumAckPending == 0) {
            outcome = Outcome::Drained;
            break;
          }
        }
      }
      continue;
    }
    if (s != NATS_OK) {
      next.messages.reset();
      if (!settleInFlight()) return Outcome::Abandoned;
      logOnce("cannot fetch from " + session.connection->url() + ": " + fleet::NatsErrorText(s) + "; retrying");
      SleepUnlessStopped(backoff->delay(++failures), stop);
      continue;
    }
    failures = 0;
    decode(next, decoder);
    // The writer takes the next batch as soon as it is done with this one;
    // the acknowledgements go out while it writes.
    FetchedBatch* done = std::exchange(inFlight, nullptr);
    StoreOutcome result;
    if (done) result = writer.wait();
    if (!done || result.proceed) {
      prune();  // the writer is idle
      writer.submit(&next.store);
      inFlight = &next;
    }
    if (done && !settle(*done, std::move(result), &failures, *backoff, stop)) return Outcome::Abandoned;
  }
  if (!settleInFlight()) return Outcome::Abandoned;
  return outcome;
}

void Collector::decode(FetchedBatch& batch, FleetEventDecoder& decoder) {
  natsMsgList& list = *batch.messages->get();
  counts_.received += list.Count;
  std::vector<FleetEvent>& events = batch.store.events;
  std::vector<RejectedMessage>& rejected = batch.store.rejected;
  // Decoded in place into the elements left from the batch before, so that
  // their strings keep their buffers.
  events.resize(static_cast<std::size_t>(list.Count));
  rejected.clear();
  std::size_t kept = 0;
  std::string fallbackId;
  for (int i = 0; i < list.Count; ++i) {
    natsMsg* msg = list.Msgs[i];
    const std::string_view id = MessageId(msg, &fallbackId);
    const char* subject = natsMsg_GetSubject(msg);
    const std::string_view data(natsMsg_GetData(msg), static_cast<std::size_t>(natsMsg_GetDataLength(msg)));
    if (auto reason = decoder.decode(subject ? subject : "", id, data, &events[kept])) {
      rejected.push_back(RejectedMessage{std::string(id), subject ? subject : "", std::string(data), *reason});
    } else {
      ++kept;
    }
  }
  events.resize(kept);
  batch.store.receivedMicroseconds = NowMicroseconds();
}

bool Collector::settle(FetchedBatch& batch, StoreOutcome outcome, int* failures, fleet::Backoff& backoff,
                       const std::atomic<bool>& stop) {
  natsMsgList& list = *batch.messages->get();
  if (outcome.error) {
    // Not acknowledged: the server delivers the batch again.
    logOnce("cannot store a batch: " + outcome.error->description() + "; it will be delivered again");
    for (int i = 0; i < list.Count; ++i) (void)natsMsg_NakWithDelay(list.Msgs[i], 1000, nullptr);
    batch.messages.reset();
    SleepUnlessStopped(backoff.delay(++*failures), stop);
    return true;
  }
  if (!outcome.proceed) return false;
  for (const RejectedMessage& r : batch.store.rejected) {
    fleet::FleetLog("kept message " + r.eventId + " on " + r.subject + " as rejected: " + r.reason);
  }
  for (int i = 0; i < list.Count; ++i) {
    // A lost acknowledgement only means a redelivery, which the store ignores.
    (void)natsMsg_Ack(list.Msgs[i], nullptr);
  }
  batch.messages.reset();
  return true;
}

}  // namespace lumvane::collect
