// Root of everything the signpost library delivers. The telemetry operations
// are virtual so that each object answers for its own dynamic class, the most
// derived definition winning.
#pragma once

namespace lumvane {

class VantrelObject {
 public:
  virtual ~VantrelObject() = default;

  // Whether objects of this class can be turned into a telemetry payload.
  // A constant of the class, never of the object's contents.
  virtual bool canGenerateDovetelPayload() const { return false; }

 protected:
  VantrelObject() = default;
  VantrelObject(const VantrelObject&) = default;
  VantrelObject& operator=(const VantrelObject&) = delete;
};

}  // namespace lumvane
