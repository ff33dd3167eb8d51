// lumvane-upload's publishing rate against a bare loop of asynchronous
// JetStream publishes of the same lines (with message IDs, the same window
// and per-message wait) through the same C client, on the same private
// nats-server. Runs alternate (bare, uploader, bare, ...) and each side's
// median is taken: server and client share the machine's cores, and single
// runs vary more than the margin we care about.
//
// Usage: upload_bench [--events N] [--runs N]   (defaults 50000 and 5)
// Prints both medians in events/s and their ratio (uploader / bare).
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "fleet/FleetConnection.h"
#include "fleet/FleetLog.h"
#include "fleet/SubjectToken.h"
#include "lumvane/platform/DovetelEventJson.h"
#include "tests/support/NatsTestServer.h"
#include "upload/UploadCursor.h"
#include "upload/Uploader.h"

namespace lumvane {
namespace {

using Clock = std::chrono::steady_clock;
constexpr int64_t kWindow = 1024;
constexpr int64_t kAckWaitMs = 5000;

std::vector<std::string> MakeLines(int count) {
  const char* names[] = {"com.orvel.performance.signpost", "sp__com.example.net__fetch__Request"};
  std::vector<std::string> lines;
  for (int i = 0; i < count; ++i) {
    Dictionary payload{{"Subsystem", Value("com.example.net")}, {"Category", Value("fetch")},
                       {"Name", Value("Request")}, {"DurationSeconds", Value(Number::fromFloat(0.25f))},
                       {"Index", Value(Number::fromUInt64(static_cast<uint64_t>(i)))}};
    lines.push_back(EncodeDovetelEventLine(names[i % 2], payload, 1700000000000000 + i));
  }
  return lines;
}

std::atomic<int64_t> gAcked{0};

void CountAck(jsCtx*, natsMsg* msg, jsPubAck* pa, jsPubAckErr* pae, void*) {
  if (pa && !pae) gAcked.fetch_add(1);
  natsMsg_Destroy(msg);
}

// The baseline: every line published asynchronously with its message ID,
// then waited for until every acknowledgement is in.
double BareLoop(const fleet::ConnectionSettings& settings, const std::vector<std::string>& lines, int run) {
  jsOptions options;
  jsOptions_Init(&options);
  options.PublishAsync.AckHandler = CountAck;
  options.PublishAsync.MaxPending = kWindow;
  std::unique_ptr<fleet::FleetConnection> connection;
  auto backoff = std::make_shared<fleet::Backoff>(settings.backoff);
  if (auto error = fleet::FleetConnection::Open(settings, backoff, &options, &connection)) {
    std::fprintf(stderr, "upload_bench: %s\n", error->description().c_str());
    std::exit(1);
  }
  gAcked = 0;
  const auto start = Clock::now();
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string subject = "lumvane.bare." + fleet::EscapeSubjectToken(i % 2 ? "sp__x" : "com.orvel.x");
    const std::string id = "bare-" + std::to_string(run) + "-" + std::to_string(i);
    jsPubOptions pub;
    jsPubOptions_Init(&pub);
    pub.MsgId = id.c_str();
    pub.MaxWait = kAckWaitMs;
    js_PublishAsync(connection->jetStream(), subject.c_str(), lines[i].data(), static_cast<int>(lines[i].size()),
                    &pub);
  }
  jsPubOptions wait;
  jsPubOptions_Init(&wait);
  wait.MaxWait = 60000;
  js_PublishAsyncComplete(connection->jetStream(), &wait);
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  if (gAcked.load() != static_cast<int64_t>(lines.size())) {
    std::fprintf(stderr, "upload_bench: bare loop got %lld of %zu acknowledgements\n",
                 static_cast<long long>(gAcked.load()), lines.size());
  }
  return static_cast<double>(lines.size()) / seconds;
}

// The uploader over a spool holding the same lines, from start until its
// cursor shows every line acknowledged and the file reclaimed.
double UploaderRun(const fleet::ConnectionSettings& settings, const std::vector<std::string>& lines,
                   const std::string& dir, int run) {
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  {
    std::ofstream out(dir + "/events.ndjson", std::ios::binary);
    for (const std::string& line : lines) out << line;
  }
  upload::UploadSettings s;
  s.connection = settings;
  s.spoolDirectory = dir;
  s.window = kWindow;
  s.ackWaitMs = kAckWaitMs;
  s.idleRotateMs = 0;
  s.pollIntervalMs = 1;
  s.rotateBytes = 1 << 20;
  upload::Uploader uploader(s, "bench" + std::to_string(run));
  std::atomic<bool> stop{false};
  const upload::SpoolPaths paths(dir);
  const auto start = Clock::now();
  std::thread worker([&] {
    if (auto error = uploader.run(stop)) {
      std::fprintf(stderr, "upload_bench: %s\n", error->description().c_str());
    }
  });
  upload::UploadCursor cursor;
  // Done when the file is gone: it was rotated (renamed, so never both
  // missing before), every line acknowledged, and the rotated file removed.
  while (std::filesystem::exists(paths.events) || std::filesystem::exists(paths.rotated(1))) {
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  stop = true;
  worker.join();
  if (auto error = upload::ReadUploadCursor(paths, &cursor)) {
    std::fprintf(stderr, "upload_bench: %s\n", error->description().c_str());
  }
  if (cursor.droppedEvents || cursor.malformedLines) std::fprintf(stderr, "upload_bench: lines were skipped\n");
  return static_cast<double>(lines.size()) / seconds;
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

int Main(int argc, char** argv) {
  int events = 50000, runs = 5;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--events") && i + 1 < argc) {
      events = std::atoi(argv[++i]);
    } else if (!std::strcmp(argv[i], "--runs") && i + 1 < argc) {
      runs = std::atoi(argv[++i]);
    } else {
      std::fprintf(stderr, "Usage: upload_bench [--events N] [--runs N]\n");
      return std::strcmp(argv[i], "--help") ? 2 : 0;
    }
  }
  if (events < 1 || runs < 1) {
    std::fprintf(stderr, "upload_bench: --events and --runs must be positive\n");
    return 2;
  }
  fleet::SetFleetLogEnabled(false);
  std::unique_ptr<testing::NatsTestServer> server;
  if (auto error = testing::NatsTestServer::Start({}, &server)) {
    std::fprintf(stderr, "upload_bench: %s\n", error->description().c_str());
    return 1;
  }
  fleet::ConnectionSettings settings;
  settings.servers = {server->url()};
  settings.stream.create = true;
  const std::vector<std::string> lines = MakeLines(events);
  const std::string dir = server->directory() + "/spool";
  std::vector<double> bare, uploader;
  for (int r = 0; r < runs; ++r) {
    bare.push_back(BareLoop(settings, lines, r));
    uploader.push_back(UploaderRun(settings, lines, dir, r));
    std::printf("run %d: bare %.0f events/s, uploader %.0f events/s\n", r + 1, bare.back(), uploader.back());
  }
  const double b = Median(bare), u = Median(uploader);
  std::printf("median of %d alternated runs of %d events: bare %.0f events/s, uploader %.0f events/s, ratio %.2f\n",
              runs, events, b, u, u / b);
  return 0;
}

}  // namespace
}  // namespace lumvane

int main(int argc, char** argv) { return lumvane::Main(argc, argv); }
