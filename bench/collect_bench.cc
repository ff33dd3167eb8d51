// lumvane-collect's throughput against bare baselines measured in the same
// run, in alternated rounds (server and client share the machine's cores,
// so single rounds vary more than the margin that matters):
//   store: decode + insert through EventStore  vs  a bare batched SQLite
//          insert of the same, already decoded rows into the same schema;
//   loop:  the Collector (fetch, decode, insert, commit, ack) against a
//          local nats-server  vs  a bare pull-and-acknowledge loop of the
//          same messages from the same server.
// Prints the median events/s of each and their ratio, and the median CPU
// time per event of the benchmark process (all its threads) and of the
// server, which show what bounds the loop on a machine whose cores the
// two share. Both loops are timed from before they connect until the last
// batch is done: committed (the collector) or acknowledged (the bare loop).
// Usage: collect_bench [--events N] [--rounds N] [--batch N] [--only store|loop]
#include <dirent.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "collect/Collector.h"
#include "collect/EventStore.h"
#include "collect/FleetEventDecoder.h"
#include "fleet/FleetConnection.h"
#include "fleet/FleetLog.h"
#include "tests/support/NatsTestServer.h"

namespace {

using namespace lumvane;
using Clock = std::chrono::steady_clock;

struct Message {
  std::string subject, id, line;
};

std::vector<Message> MakeMessages(int count) {
  std::vector<Message> messages;
  const int64_t now = std::chrono::duration_cast<std::chrono::microseconds>(
                          std::chrono::system_clock::now().time_since_epoch())
                          .count();
  for (int i = 0; i < count; ++i) {
    const std::string n = std::to_string(i % 37);
    const std::string line =
        "{\"name\": \"com.orvel.performance.signpost\", \"payload\": {\"Subsystem\": \"com.example.sync" + n +
        "\", \"Category\": \"folders\", \"Name\": \"FolderSync\", \"String1Name\": \"Kind\", \"String1Value\": "
        "\"full\", \"Number1Name\": \"Files\", \"Number1Value\": " + std::to_string(i) +
        ", \"IntervalType\": \"Interval\", \"DurationInSeconds\": 0.25" + n +
        ", \"StartProcessName\": \"org.example.Sync\", \"EndProcessName\": \"org.example.Sync\", "
        "\"BootPartitionFS\": \"ext4\", \"BootDiskType\": \"ssd\"}, \"sent\": " + std::to_string(now + i) + "}";
    messages.push_back({"lumvane.m" + std::to_string(i % 50) + ".com%2Eorvel%2Eperformance%2Esignpost",
                        "m" + std::to_string(i % 50) + ":1:" + std::to_string(i * 400), line});
  }
  return messages;
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

double Seconds(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// CPU seconds used so far by this process, all threads.
double OwnCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6 + usage.ru_stime.tv_sec + usage.ru_stime.tv_usec / 1e6;
}

// The nats-server this process started (its only child of that name), or -1.
pid_t ServerPid() {
  DIR* proc = opendir("/proc");
  if (!proc) return -1;
  pid_t found = -1;
  while (dirent* entry = readdir(proc)) {
    std::ifstream stat(std::string("/proc/") + entry->d_name + "/stat");
    std::string pid, comm, state;
    pid_t parent = 0;
    if (stat >> pid >> comm >> state >> parent && parent == getpid() && comm == "(nats-server)") {
      found = std::atoi(pid.c_str());
    }
  }
  closedir(proc);
  return found;
}

// CPU seconds used so far by process `pid` (0 when unknown).
double ProcessCpuSeconds(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string field;
  // utime and stime are fields 14 and 15; the name (field 2) has no spaces here.
  double ticks = 0;
  for (int i = 1; i <= 15 && stat >> field; ++i) {
    if (i >= 14) ticks += std::atof(field.c_str());
  }
  return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Events/s of one round and the CPU per event it cost, in µs.
struct Round {
  double rate = 0, clientMicros = 0, serverMicros = 0;
};

// Measures `run` (which returns the events/s it saw) with the CPU used by
// this process and by the server meanwhile.
template <typename Run>
Round Measure(pid_t server, int count, Run run) {
  const double client = OwnCpuSeconds(), serverCpu = server > 0 ? ProcessCpuSeconds(server) : 0;
  Round round;
  round.rate = run();
  round.clientMicros = (OwnCpuSeconds() - client) * 1e6 / count;
  round.serverMicros = server > 0 ? (ProcessCpuSeconds(server) - serverCpu) * 1e6 / count : 0;
  return round;
}

double MedianOf(const std::vector<Round>& rounds, double Round::*field) {
  std::vector<double> values;
  for (const Round& r : rounds) values.push_back(r.*field);
  return Median(values);
}

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "collect_bench: %s\n", what.c_str());
  std::exit(1);
}

std::string FreshDatabase(const std::string& dir, int round, const char* kind) {
  const std::string path = dir + "/" + kind + std::to_string(round) + ".db";
  for (const char* suffix : {"", "-wal", "-shm"}) unlink((path + suffix).c_str());
  return path;
}

// The store stage as the collector runs it: decode each message, insert
// each batch in one transaction.
double OursStore(const std::vector<Message>& messages, const std::string& path, int batch) {
  std::unique_ptr<collect::EventStore> store;
  if (auto error = collect::EventStore::Open(path, false, &store)) Fail(error->description());
  collect::FleetEventDecoder decoder;
  std::vector<collect::FleetEvent> events;
  const auto start = Clock::now();
  for (std::size_t i = 0; i < messages.size(); i += batch) {
    events.clear();
    for (std::size_t j = i; j < std::min(messages.size(), i + batch); ++j) {
      events.emplace_back();
      if (decoder.decode(messages[j].subject, messages[j].id, messages[j].line, &events.back())) Fail("decode");
    }
    if (auto error = store->insertBatch(events, {}, 0, nullptr)) Fail(error->description());
  }
  return messages.size() / Seconds(start);
}

// The baseline: the same rows, decoded beforehand, inserted with the bare
// SQLite API into the same schema with the same settings.
double BareStore(const std::vector<collect::FleetEvent>& rows, const std::string& path, int batch) {
  {
    std::unique_ptr<collect::EventStore> schema;
    if (auto error = collect::EventStore::Open(path, false, &schema)) Fail(error->description());
  }
  sqlite3* db = nullptr;
  if (sqlite3_open(path.c_str(), &db) != SQLITE_OK) Fail("open " + path);
  sqlite3_exec(db, "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;", nullptr, nullptr, nullptr);
  sqlite3_stmt* insert = nullptr;
  sqlite3_prepare_v2(db,
                     "INSERT OR IGNORE INTO events(event_id, machine, name, sent_us, day, payload) "
                     "VALUES (?1, ?2, ?3, ?4, ?5, ?6)",
                     -1, &insert, nullptr);
  const auto start = Clock::now();
  for (std::size_t i = 0; i < rows.size(); i += batch) {
    sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
    for (std::size_t j = i; j < std::min(rows.size(), i + batch); ++j) {
      const collect::FleetEvent& e = rows[j];
      sqlite3_bind_text(insert, 1, e.eventId.data(), static_cast<int>(e.eventId.size()), SQLITE_STATIC);
      sqlite3_bind_text(insert, 2, e.machine.data(), static_cast<int>(e.machine.size()), SQLITE_STATIC);
      sqlite3_bind_text(insert, 3, e.name.data(), static_cast<int>(e.name.size()), SQLITE_STATIC);
      sqlite3_bind_int64(insert, 4, e.sentMicroseconds);
      sqlite3_bind_text(insert, 5, e.day.data(), static_cast<int>(e.day.size()), SQLITE_STATIC);
      sqlite3_bind_text(insert, 6, e.payload.data(), static_cast<int>(e.payload.size()), SQLITE_STATIC);
      if (sqlite3_step(insert) != SQLITE_DONE) Fail(sqlite3_errmsg(db));
      sqlite3_reset(insert);
    }
    if (sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) Fail(sqlite3_errmsg(db));
  }
  const double rate = rows.size() / Seconds(start);
  sqlite3_finalize(insert);
  sqlite3_close(db);
  return rate;
}

void Publish(const fleet::ConnectionSettings& settings, const std::vector<Message>& messages) {
  std::unique_ptr<fleet::FleetConnection> connection;
  if (auto error = fleet::FleetConnection::Open(settings, std::make_shared<fleet::Backoff>(settings.backoff),
                                                nullptr, &connection)) {
    Fail(error->description());
  }
  for (const Message& m : messages) {
    jsPubOptions options;
    jsPubOptions_Init(&options);
    options.MsgId = m.id.c_str();
    if (js_PublishAsync(connection->jetStream(), m.subject.c_str(), m.line.data(), static_cast<int>(m.line.size()),
                        &options) != NATS_OK) {
      Fail("publish");
    }
  }
  jsPubOptions wait;
  jsPubOptions_Init(&wait);
  wait.MaxWait = 60000;
  if (js_PublishAsyncComplete(connection->jetStream(), &wait) != NATS_OK) Fail("publish: no acknowledgements");
}

// The baseline loop: an explicit durable consumer, fetch, ack each message.
double BarePullAndAck(const fleet::ConnectionSettings& settings, const std::string& consumer, int count, int batch) {
  const auto start = Clock::now();
  std::unique_ptr<fleet::FleetConnection> connection;
  if (auto error = fleet::FleetConnection::Open(settings, std::make_shared<fleet::Backoff>(settings.backoff),
                                                nullptr, &connection)) {
    Fail(error->description());
  }
  jsCtx* js = connection->jetStream();
  jsConsumerConfig config;
  jsConsumerConfig_Init(&config);
  config.Durable = consumer.c_str();
  config.AckPolicy = js_AckExplicit;
  config.MaxAckPending = std::max(batch * 4, 1000);  // as the collector's consumer
  jsConsumerInfo* info = nullptr;
  if (js_AddConsumer(&info, js, fleet::kStreamName, &config, nullptr, nullptr) != NATS_OK) Fail("add consumer");
  jsConsumerInfo_Destroy(info);
  jsSubOptions subOptions;
  jsSubOptions_Init(&subOptions);
  subOptions.Stream = fleet::kStreamName;
  subOptions.Consumer = consumer.c_str();
  subOptions.ManualAck = true;
  natsSubscription* raw = nullptr;
  if (js_PullSubscribe(&raw, js, fleet::kStreamSubjects, consumer.c_str(), nullptr, &subOptions, nullptr) != NATS_OK) {
    Fail("subscribe");
  }
  fleet::NatsSubscriptionPtr sub(raw);
  int received = 0;
  while (received < count) {
    fleet::NatsMsgListHolder list;
    natsStatus s = natsSubscription_Fetch(list.get(), sub.get(), batch, 1000, nullptr);
    if (s != NATS_OK && s != NATS_TIMEOUT) Fail("fetch");
    for (int i = 0; i < list->Count; ++i) natsMsg_Ack(list->Msgs[i], nullptr);
    received += list->Count;
  }
  const double rate = count / Seconds(start);
  natsConnection_Flush(connection->connection());
  sub.reset();
  js_DeleteConsumer(js, fleet::kStreamName, consumer.c_str(), nullptr, nullptr);
  return rate;
}

// The collector's whole loop, timed from before it connects until every
// message is committed (every batch but the last is acknowledged by then).
double OursLoop(const fleet::ConnectionSettings& settings, const std::string& consumer, int count, int batch,
                const std::string& path) {
  std::unique_ptr<collect::EventStore> store;
  if (auto error = collect::EventStore::Open(path, false, &store)) Fail(error->description());
  collect::CollectorOptions options;
  options.consumer = consumer;
  options.batch = batch;
  std::atomic<bool> stop{false};
  collect::Collector* self = nullptr;
  Clock::time_point start, end;
  // The clock stops when the last batch has committed (every earlier batch
  // is acknowledged by then); the collector's last fetch, which waits for
  // messages that will not come, is not the loop's work.
  options.afterCommit = [&] {
    if (self->counts().stored >= count && !stop.load()) {
      end = Clock::now();
      stop.store(true);
    }
    return true;
  };
  collect::Collector collector(settings, options, store.get());
  self = &collector;
  start = Clock::now();
  if (auto error = collector.run(stop)) Fail(error->description());
  const double rate = count / std::chrono::duration<double>(end - start).count();
  if (collector.counts().stored != count) Fail("the collector stored " + std::to_string(collector.counts().stored));
  std::unique_ptr<fleet::FleetConnection> connection;
  if (!fleet::FleetConnection::Open(settings, std::make_shared<fleet::Backoff>(settings.backoff), nullptr,
                                    &connection)) {
    js_DeleteConsumer(connection->jetStream(), fleet::kStreamName, consumer.c_str(), nullptr, nullptr);
  }
  return rate;
}

}  // namespace

int main(int argc, char** argv) {
  int count = 50000, rounds = 7, batch = 1024;
  std::string only;  // "store" or "loop" to run one part (for profiling)
  for (int i = 1; i < argc; ++i) {
    const std::string flag = argv[i];
    if (flag == "--help") {
      std::puts("Usage: collect_bench [--events N] [--rounds N] [--batch N] [--only store|loop]");
      return 0;
    }
    if (i + 1 >= argc) Fail("unknown or incomplete option " + flag);
    if (flag == "--only") {
      only = argv[++i];
      if (only != "store" && only != "loop") Fail("--only takes store or loop");
      continue;
    }
    const int value = std::atoi(argv[++i]);
    if (value <= 0) Fail(flag + " needs a positive number");
    if (flag == "--events") count = value;
    else if (flag == "--rounds") rounds = value;
    else if (flag == "--batch") batch = value;
    else Fail("unknown option " + flag);
  }
  fleet::SetFleetProgramName("collect_bench");
  const std::vector<Message> messages = MakeMessages(count);

  std::unique_ptr<testing::NatsTestServer> server;
  if (testing::NatsTestServer::Binary().empty()) Fail("nats-server is not installed");
  if (auto error = testing::NatsTestServer::Start({}, &server)) Fail(error->description());
  const std::string dir = server->directory();

  std::vector<collect::FleetEvent> rows(messages.size());
  collect::FleetEventDecoder decoder;
  for (std::size_t i = 0; i < messages.size(); ++i) {
    if (decoder.decode(messages[i].subject, messages[i].id, messages[i].line, &rows[i])) Fail("decode");
  }
  const pid_t serverPid = ServerPid();
  std::vector<Round> bareStore, oursStore;
  for (int r = 0; r < rounds && only != "loop"; ++r) {
    bareStore.push_back(Measure(-1, count, [&] { return BareStore(rows, FreshDatabase(dir, r, "bare"), batch); }));
    oursStore.push_back(Measure(-1, count, [&] { return OursStore(messages, FreshDatabase(dir, r, "ours"), batch); }));
  }
  if (only != "loop") {
    std::printf("store stage, %d events, batches of %d, median of %d alternated rounds:\n", count, batch, rounds);
    std::printf("  bare batched SQLite insert   %10.0f events/s  %5.2f µs CPU/event\n",
                MedianOf(bareStore, &Round::rate), MedianOf(bareStore, &Round::clientMicros));
    std::printf("  decode + EventStore insert   %10.0f events/s  %5.2f µs CPU/event\n",
                MedianOf(oursStore, &Round::rate), MedianOf(oursStore, &Round::clientMicros));
    std::printf("  ratio                        %10.2f\n",
                MedianOf(oursStore, &Round::rate) / MedianOf(bareStore, &Round::rate));
  }
  if (only == "store") return 0;

  fleet::ConnectionSettings settings;
  settings.servers = {server->url()};
  settings.stream.create = true;
  Publish(settings, messages);
  std::vector<Round> bareLoop, oursLoop;
  std::vector<double> pairRatios;  // round by round
  for (int r = 0; r < rounds; ++r) {
    bareLoop.push_back(Measure(serverPid, count, [&] {
      return BarePullAndAck(settings, "bare" + std::to_string(r), count, batch);
    }));
    oursLoop.push_back(Measure(serverPid, count, [&] {
      return OursLoop(settings, "ours" + std::to_string(r), count, batch, FreshDatabase(dir, r, "loop"));
    }));
    pairRatios.push_back(oursLoop.back().rate / bareLoop.back().rate);
  }
  std::printf("whole loop against a local nats-server, same events (CPU per event: this process, server):\n");
  std::printf("  bare pull-and-ack loop       %10.0f events/s  %5.2f + %5.2f µs\n", MedianOf(bareLoop, &Round::rate),
              MedianOf(bareLoop, &Round::clientMicros), MedianOf(bareLoop, &Round::serverMicros));
  std::printf("  collector (fetch..ack)       %10.0f events/s  %5.2f + %5.2f µs\n", MedianOf(oursLoop, &Round::rate),
              MedianOf(oursLoop, &Round::clientMicros), MedianOf(oursLoop, &Round::serverMicros));
  std::printf("  ratio                        %10.2f  (median of the rounds' own ratios %.2f)\n",
              MedianOf(oursLoop, &Round::rate) / MedianOf(bareLoop, &Round::rate), Median(pairRatios));
  if (only.empty()) {
    std::printf("  store stage / bare loop      %10.2f\n",
                MedianOf(oursStore, &Round::rate) / MedianOf(bareLoop, &Round::rate));
  }
  return 0;
}
