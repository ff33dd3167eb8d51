#include "tests/support/JetStreamContents.h"

#include <memory>

#include "fleet/FleetConnection.h"
#include "fleet/FleetLog.h"

namespace lumvane::testing {

std::optional<Error> ReadLumvaneStream(const fleet::ConnectionSettings& settings, std::vector<StoredMessage>* out,
                                       uint64_t minimum) {
  std::unique_ptr<fleet::FleetConnection> connection;
  const bool logging = fleet::SetFleetLogEnabled(false);  // tests poll with this: keep their output quiet
  std::optional<Error> error = fleet::FleetConnection::Open(
      settings, std::make_shared<fleet::Backoff>(fleet::BackoffPolicy{}), nullptr, &connection);
  fleet::SetFleetLogEnabled(logging);
  if (error) return error;
  jsStreamInfo* rawInfo = nullptr;
  natsStatus s = js_GetStreamInfo(&rawInfo, connection->jetStream(), fleet::kStreamName, nullptr, nullptr);
  fleet::JsStreamInfoPtr info(rawInfo);
  if (s != NATS_OK) return Error("cannot read stream info: " + fleet::NatsErrorText(s));
  out->clear();
  if (info->State.Msgs == 0 || info->State.Msgs < minimum) return std::nullopt;
  for (uint64_t seq = info->State.FirstSeq; seq <= info->State.LastSeq; ++seq) {
    natsMsg* raw = nullptr;
    s = js_GetMsg(&raw, connection->jetStream(), fleet::kStreamName, seq, nullptr, nullptr);
    fleet::NatsMsgPtr msg(raw);
    if (s == NATS_NOT_FOUND) continue;  // deleted
    if (s != NATS_OK) return Error("cannot read message " + std::to_string(seq) + ": " + fleet::NatsErrorText(s));
    const char* id = nullptr;
    natsMsgHeader_Get(msg.get(), "Nats-Msg-Id", &id);
    const auto length = static_cast<std::size_t>(natsMsg_GetDataLength(msg.get()));
    out->push_back({natsMsg_GetSubject(msg.get()), std::string(natsMsg_GetData(msg.get()), length), id ? id : ""});
  }
  return std::nullopt;
}

}  // namespace lumvane::testing
