#include "fleet/LumvaneStream.h"

#include <cstring>

namespace lumvane::fleet {
namespace {

bool HasOnlyOurSubjects(const jsStreamInfo* info) {
  const jsStreamConfig* config = info ? info->Config : nullptr;
  if (!config || config->SubjectsLen != 1) return false;
  return std::strcmp(config->Subjects[0], kStreamSubjects) == 0;
}

}  // namespace

std::optional<Error> EnsureLumvaneStream(jsCtx* js, const StreamSettings& settings,
                                         const std::string& server) {
  jsStreamInfo* raw = nullptr;
  jsErrCode code = static_cast<jsErrCode>(0);
  if (settings.create) {
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    const char* subjects[] = {kStreamSubjects};
    config.Name = kStreamName;
    config.Subjects = subjects;
    config.SubjectsLen = 1;
    config.Storage = js_FileStorage;
    config.Replicas = settings.replicas;
    config.MaxAge = settings.maxAgeDays * 86400LL * 1000000000LL;
    natsStatus s = js_AddStream(&raw, js, &config, nullptr, &code);
    JsStreamInfoPtr added(raw);
    if (s == NATS_OK) return std::nullopt;
    if (code != JSStreamNameExistErr) {
      return Error("cannot create stream " + std::string(kStreamName) + " on " + server + ": " +
                   NatsErrorText(s));
    }
  }
  raw = nullptr;
  natsStatus s = js_GetStreamInfo(&raw, js, kStreamName, nullptr, &code);
  JsStreamInfoPtr info(raw);
  if (s == NATS_NOT_FOUND || code == JSStreamNotFoundErr) {
    return Error("stream " + std::string(kStreamName) + " does not exist on " + server +
                 " (create it with --create-stream)");
  }
  if (s != NATS_OK) {
    return Error("cannot look up stream " + std::string(kStreamName) + " on " + server + ": " +
                 NatsErrorText(s));
  }
  if (!HasOnlyOurSubjects(info.get())) {
    return Error("stream " + std::string(kStreamName) + " on " + server +
                 " exists with other subjects than " + kStreamSubjects);
  }
  return std::nullopt;
}

}  // namespace lumvane::fleet
