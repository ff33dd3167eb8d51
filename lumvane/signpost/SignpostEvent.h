// A single emitted signpost event; also the begin and end of an interval,
// where it names the process on each side.
#pragma once

#include "lumvane/signpost/SignpostObject.h"

namespace lumvane {

class SignpostEvent : public SignpostObject {
 public:
  SignpostEvent(SignpostObjectProperties properties, std::optional<std::string> processName,
                std::optional<std::string> processImagePath)
      : SignpostObject(std::move(properties)),
        processName_(std::move(processName)),
        processImagePath_(std::move(processImagePath)) {}

  const std::optional<std::string>& processName() const { return processName_; }
  const std::optional<std::string>& processImagePath() const { return processImagePath_; }

  const char* signpostType() const override { return "Event"; }
  bool canGenerateDovetelPayload() const override { return true; }
  // The common payload plus "StartProcessName".
  std::optional<Dictionary> dovetelPayload() const override;

 private:
  const std::optional<std::string> processName_;
  const std::optional<std::string> processImagePath_;
};

}  // namespace lumvane
