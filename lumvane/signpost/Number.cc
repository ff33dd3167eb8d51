#include "lumvane/signpost/Number.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace lumvane {
namespace {

template <typename Int>
Int saturatingCast(double d) {
  if (std::isnan(d)) return 0;
  if (d <= static_cast<double>(std::numeric_limits<Int>::min())) {
    return std::numeric_limits<Int>::min();
  }
  // 2^63 and 2^64 are exact in double; anything at or above them saturates.
  if (d >= static_cast<double>(std::numeric_limits<Int>::max())) {
    return std::numeric_limits<Int>::max();
  }
  return static_cast<Int>(d);
}

}  // namespace

Number Number::fromInt64(int64_t v) {
  Number n;
  n.kind_ = Kind::Signed;
  n.v_.i = v;
  return n;
}

Number Number::fromUInt64(uint64_t v) {
  Number n;
  n.kind_ = Kind::Unsigned;
  n.v_.u = v;
  return n;
}

Number Number::fromFloat(float v) {
  Number n;
  n.kind_ = Kind::Float32;
  n.v_.f = v;
  return n;
}

Number Number::fromDouble(double v) {
  Number n;
  n.kind_ = Kind::Float64;
  n.v_.d = v;
  return n;
}

Number Number::fromBool(bool v) {
  Number n;
  n.kind_ = Kind::Boolean;
  n.v_.b = v;
  return n;
}

int64_t Number::int64Value() const {
  switch (kind_) {
    case Kind::Signed: return v_.i;
    case Kind::Unsigned: return static_cast<int64_t>(v_.u);
    case Kind::Float32: return saturatingCast<int64_t>(v_.f);
    case Kind::Float64: return saturatingCast<int64_t>(v_.d);
    case Kind::Boolean: return v_.b ? 1 : 0;
  }
  return 0;
}

uint64_t Number::uint64Value() const {
  switch (kind_) {
    case Kind::Signed: return static_cast<uint64_t>(v_.i);
    case Kind::Unsigned: return v_.u;
    case Kind::Float32:
    case Kind::Float64: {
      double d = doubleValue();
      // A negative float goes through the signed conversion, as an integer of
      // that value would.
      if (d < 0) return static_cast<uint64_t>(saturatingCast<int64_t>(d));
      return saturatingCast<uint64_t>(d);
    }
    case Kind::Boolean: return v_.b ? 1 : 0;
  }
  return 0;
}

float Number::floatValue() const {
  return kind_ == Kind::Float32 ? v_.f : static_cast<float>(doubleValue());
}

double Number::doubleValue() const {
  switch (kind_) {
    case Kind::Signed: return static_cast<double>(v_.i);
    case Kind::Unsigned: return static_cast<double>(v_.u);
    case Kind::Float32: return static_cast<double>(v_.f);
    case Kind::Float64: return v_.d;
    case Kind::Boolean: return v_.b ? 1.0 : 0.0;
  }
  return 0;
}

bool Number::boolValue() const {
  switch (kind_) {
    case Kind::Signed: return v_.i != 0;
    case Kind::Unsigned: return v_.u != 0;
    case Kind::Float32: return v_.f != 0.0f;
    case Kind::Float64: return v_.d != 0.0;
    case Kind::Boolean: return v_.b;
  }
  return false;
}

bool Number::operator==(const Number& other) const {
  if (kind_ != other.kind_) return false;
  switch (kind_) {
    case Kind::Signed: return v_.i == other.v_.i;
    case Kind::Unsigned: return v_.u == other.v_.u;
    case Kind::Float32: return v_.f == other.v_.f;
    case Kind::Float64: return v_.d == other.v_.d;
    case Kind::Boolean: return v_.b == other.v_.b;
  }
  return false;
}

std::string Number::description() const {
  char buf[64];
  std::to_chars_result r{};
  switch (kind_) {
    case Kind::Signed: r = std::to_chars(buf, buf + sizeof buf, v_.i); break;
    case Kind::Unsigned: r = std::to_chars(buf, buf + sizeof buf, v_.u); break;
    case Kind::Float32: r = std::to_chars(buf, buf + sizeof buf, v_.f); break;
    case Kind::Float64: r = std::to_chars(buf, buf + sizeof buf, v_.d); break;
    case Kind::Boolean: return v_.b ? "1" : "0";
  }
  return std::string(buf, r.ptr);
}

}  // namespace lumvane
