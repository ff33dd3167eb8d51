// An interval that also measured a frame rate. It is an interval in every
// respect; code that tells kinds apart tests for it before SignpostInterval.
#pragma once

#include "lumvane/signpost/SignpostInterval.h"

namespace lumvane {

class SignpostAnimationInterval : public SignpostInterval {
 public:
  SignpostAnimationInterval(SignpostObjectProperties properties,
                            std::shared_ptr<const SignpostEvent> beginEvent,
                            std::shared_ptr<const SignpostEvent> endEvent, Dictionary attributes,
                            float frameRate)
      : SignpostInterval(std::move(properties), std::move(beginEvent), std::move(endEvent),
                         std::move(attributes)),
        frameRate_(frameRate) {}

  float frameRate() const { return frameRate_; }

  const char* signpostType() const override { return "AnimationInterval"; }
  // The interval payload plus "FrameRate".
  std::optional<Dictionary> dovetelPayload() const override;

 private:
  const float frameRate_;
};

}  // namespace lumvane
