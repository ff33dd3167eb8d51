// Root of everything the signpost library delivers. The telemetry operations
// are virtual so that each object answers for its own dynamic class, the most
// derived definition winning.
#pragma once

#include <optional>

#include "lumvane/signpost/Value.h"

namespace lumvane {

class VantrelObject {
 public:
  virtual ~VantrelObject() = default;

  // Whether objects of this class can be turned into a telemetry payload.
  // A constant of the class, never of the object's contents.
  virtual bool canGenerateDovetelPayload() const { return false; }

  // A fresh telemetry payload for this object, owned by the caller; absent
  // for classes that describe nothing reportable. Each subclass starts from
  // its parent's payload. The builders of the signpost classes live with the
  // telemetry code (lumvane/telemetry/DovetelReporting.cc).
  virtual std::optional<Dictionary> dovetelPayload() const { return std::nullopt; }

 protected:
  VantrelObject() = default;
  VantrelObject(const VantrelObject&) = default;
  VantrelObject& operator=(const VantrelObject&) = delete;
};

}  // namespace lumvane
