// printf-style formatting for log messages, with one extension: "%@" prints
// a string, the description of an object (anything with description()), or
// "(null)" for an absent value (empty optional, null pointer). Arguments are
// type-checked at compile time by overload, so a mismatched length modifier
// (%lu given an int, say) prints the value correctly instead of reading junk.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace lumvane {
namespace logformat {

struct Arg {
  enum class Kind { Signed, Unsigned, Double, Text, Absent };
  Kind kind = Kind::Absent;
  long long i = 0;
  unsigned long long u = 0;
  double d = 0;
  std::string text;
};

template <typename T, typename = void>
struct HasDescription : std::false_type {};
template <typename T>
struct HasDescription<T, std::void_t<decltype(std::declval<const T&>().description())>>
    : std::true_type {};

inline Arg makeArg(const char* s) {
  Arg a;
  if (s) {
    a.kind = Arg::Kind::Text;
    a.text = s;
  }
  return a;
}
inline Arg makeArg(char* s) { return makeArg(static_cast<const char*>(s)); }
inline Arg makeArg(std::string_view s) {
  Arg a;
  a.kind = Arg::Kind::Text;
  a.text.assign(s.data(), s.size());
  return a;
}
inline Arg makeArg(const std::string& s) { return makeArg(std::string_view(s)); }
inline Arg makeArg(std::nullptr_t) { return Arg{}; }

template <typename T>
Arg makeArg(const std::optional<T>& v);
template <typename T>
Arg makeArg(const std::shared_ptr<T>& p);

template <typename T>
Arg makeArg(const T& v) {
  Arg a;
  if constexpr (std::is_same_v<T, bool>) {
    a.kind = Arg::Kind::Signed;
    a.i = v ? 1 : 0;
  } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
    if constexpr (std::is_enum_v<T>) {
      using U = std::underlying_type_t<T>;
      return makeArg(static_cast<U>(v));
    } else if constexpr (std::is_signed_v<T>) {
      a.kind = Arg::Kind::Signed;
      a.i = static_cast<long long>(v);
      a.u = static_cast<unsigned long long>(v);
    } else {
      a.kind = Arg::Kind::Unsigned;
      a.u = static_cast<unsigned long long>(v);
      a.i = static_cast<long long>(v);
    }
  } else if constexpr (std::is_floating_point_v<T>) {
    a.kind = Arg::Kind::Double;
    a.d = static_cast<double>(v);
  } else if constexpr (HasDescription<T>::value) {
    a.kind = Arg::Kind::Text;
    a.text = v.description();
  } else {
    static_assert(HasDescription<T>::value, "no log formatting for this argument type");
  }
  return a;
}

template <typename T>
Arg makeArg(const std::optional<T>& v) {
  return v ? makeArg(*v) : Arg{};
}

template <typename T>
Arg makeArg(const std::shared_ptr<T>& p) {
  return p ? makeArg(*p) : Arg{};
}

std::string format(const char* fmt, const Arg* args, std::size_t count);

}  // namespace logformat

template <typename... A>
std::string LVFormat(const char* fmt, const A&... args) {
  std::array<logformat::Arg, sizeof...(A)> packed{logformat::makeArg(args)...};
  return logformat::format(fmt, packed.data(), packed.size());
}

}  // namespace lumvane
