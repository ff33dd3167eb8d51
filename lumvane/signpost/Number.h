// A number that remembers its kind: signed or unsigned 64-bit integer, 32- or
// 64-bit float, or boolean. Signpost arguments, payload values and
// configuration values carry numbers of all five kinds, and the telemetry
// output must keep them apart ("DurationInSeconds" stays single precision,
// counts stay unsigned). Conversions between kinds are total and defined for
// every input: they never invoke undefined behaviour.
#pragma once

#include <cstdint>
#include <string>

namespace lumvane {

class Number final {
 public:
  enum class Kind : uint8_t { Signed, Unsigned, Float32, Float64, Boolean };

  static Number fromInt64(int64_t v);
  static Number fromUInt64(uint64_t v);
  static Number fromFloat(float v);
  static Number fromDouble(double v);
  static Number fromBool(bool v);

  Kind kind() const { return kind_; }
  bool isInteger() const { return kind_ == Kind::Signed || kind_ == Kind::Unsigned; }
  bool isFloatingPoint() const { return kind_ == Kind::Float32 || kind_ == Kind::Float64; }

  // Value in another representation, as a C cast would give it where that is
  // defined; floats outside an integer's range saturate and NaN gives 0.
  int64_t int64Value() const;
  uint64_t uint64Value() const;
  float floatValue() const;
  double doubleValue() const;
  bool boolValue() const;  // true for any non-zero value

  // Same kind and same value (floats compare by value, so NaN != NaN).
  bool operator==(const Number& other) const;
  bool operator!=(const Number& other) const { return !(*this == other); }

  // Human-readable text: integers in full, floats as the shortest decimal
  // that reads back as the same value of their width, booleans as 0/1.
  std::string description() const;

 private:
  Kind kind_ = Kind::Signed;
  union {
    int64_t i;
    uint64_t u;
    float f;
    double d;
    bool b;
  } v_{};
};

}  // namespace lumvane
