// Owning handles for the NATS C client's objects: each one frees its object
// with the library's own destroy call when it goes.
#pragma once

#include <nats/nats.h>

#include <memory>
#include <string>

namespace lumvane::fleet {

template <typename T, void (*Destroy)(T*)>
struct NatsDeleter {
  void operator()(T* p) const {
    if (p) Destroy(p);
  }
};

using NatsOptionsPtr = std::unique_ptr<natsOptions, NatsDeleter<natsOptions, natsOptions_Destroy>>;
using NatsConnectionPtr =
    std::unique_ptr<natsConnection, NatsDeleter<natsConnection, natsConnection_Destroy>>;
using JsContextPtr = std::unique_ptr<jsCtx, NatsDeleter<jsCtx, jsCtx_Destroy>>;
using NatsSubscriptionPtr =
    std::unique_ptr<natsSubscription, NatsDeleter<natsSubscription, natsSubscription_Destroy>>;
using NatsMsgPtr = std::unique_ptr<natsMsg, NatsDeleter<natsMsg, natsMsg_Destroy>>;
using JsStreamInfoPtr = std::unique_ptr<jsStreamInfo, NatsDeleter<jsStreamInfo, jsStreamInfo_Destroy>>;
using JsConsumerInfoPtr =
    std::unique_ptr<jsConsumerInfo, NatsDeleter<jsConsumerInfo, jsConsumerInfo_Destroy>>;
using JsPubAckPtr = std::unique_ptr<jsPubAck, NatsDeleter<jsPubAck, jsPubAck_Destroy>>;

// A natsMsgList on the stack whose messages are destroyed with it.
class NatsMsgListHolder final {
 public:
  NatsMsgListHolder() = default;
  ~NatsMsgListHolder() { natsMsgList_Destroy(&list_); }
  NatsMsgListHolder(const NatsMsgListHolder&) = delete;
  NatsMsgListHolder& operator=(const NatsMsgListHolder&) = delete;
  natsMsgList* get() { return &list_; }
  natsMsgList* operator->() { return &list_; }

 private:
  natsMsgList list_{nullptr, 0};
};

// "<status text>" or, when the library left a more precise message for this
// thread, "<status text> (<message>)".
std::string NatsErrorText(natsStatus status);

}  // namespace lumvane::fleet
