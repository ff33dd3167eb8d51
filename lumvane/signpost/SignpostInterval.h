// A begin event and an end event that belong together, with the attributes
// that the signpost's format string described.
#pragma once

#include <memory>

#include "lumvane/signpost/SignpostEvent.h"
#include "lumvane/signpost/Value.h"

namespace lumvane {

class SignpostInterval : public SignpostObject {
 public:
  SignpostInterval(SignpostObjectProperties properties,
                   std::shared_ptr<const SignpostEvent> beginEvent,
                   std::shared_ptr<const SignpostEvent> endEvent, Dictionary attributes = {})
      : SignpostObject(std::move(properties)),
        beginEvent_(std::move(beginEvent)),
        endEvent_(std::move(endEvent)),
        attributes_(std::move(attributes)) {}

  // Never null for intervals built by an extractor; code that reads them
  // still treats a null side as a side without process information.
  const std::shared_ptr<const SignpostEvent>& beginEvent() const { return beginEvent_; }
  const std::shared_ptr<const SignpostEvent>& endEvent() const { return endEvent_; }
  const Dictionary& attributes() const { return attributes_; }

  const char* signpostType() const override { return "Interval"; }
  bool canGenerateDovetelPayload() const override { return true; }
  // The common payload plus "StartProcessName" and "EndProcessName" (both
  // taken from the "BundleIdOverride" attribute for one subsystem).
  std::optional<Dictionary> dovetelPayload() const override;

 private:
  const std::shared_ptr<const SignpostEvent> beginEvent_;
  const std::shared_ptr<const SignpostEvent> endEvent_;
  const Dictionary attributes_;
};

}  // namespace lumvane
