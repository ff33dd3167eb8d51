// Recovers the telemetry arguments of a signpost from its format string and
// the message that format produced. A placeholder "%{attrs}" plus an
// optional length modifier and a conversion letter whose attributes include
// "signpost.telemetry:string1" (string2, number1, number2) fills that slot;
// one with "signpost.description:attribute" adds an attribute. Its name is
// the word written right before it followed by "=" ("Code=%{...}d" is named
// "Code"); a placeholder without such a name fills nothing. Its value is the
// text it produced, found by matching the format's literal parts against the
// message; every other placeholder (%d, %{public}s, ...) consumes text too,
// and "%%" is a literal percent sign.
//
// Format strings repeat across a store, so each is analysed once and kept in
// a bounded cache. Not thread-safe; one matcher per reading thread.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "lumvane/signpost/SignpostArguments.h"

namespace lumvane {

class FormatArgumentMatcher final {
 public:
  static constexpr size_t kMaxCachedFormats = 4096;

  // Fills *out (which should start empty) from `format` and `message`.
  void extract(std::string_view format, std::string_view message, SignpostArguments* out);

  // The number of a placeholder's text as a number slot holds it: integers
  // as signed (negative) or unsigned 64-bit, other numbers as 64-bit floats;
  // nullopt when the text is not a number. `conversion` is the printf
  // conversion letter (x, X and o read hexadecimal and octal).
  static std::optional<Number> parseNumber(std::string_view text, char conversion);

 private:
  enum class Target { None, String1, String2, Number1, Number2 };
  struct Placeholder {
    Target target = Target::None;
    bool attribute = false;
    bool numeric = false;  // its conversion prints a number
    char conversion = 's';
    std::string name;      // empty: fills nothing
  };
  // literals.size() == placeholders.size() + 1; placeholder i sits between
  // literals i and i + 1.
  struct CompiledFormat {
    std::vector<std::string> literals;
    std::vector<Placeholder> placeholders;
    bool fillsAnything = false;
  };

  static CompiledFormat compile(std::string_view format);
  static void assign(const Placeholder& p, std::string_view text, SignpostArguments* out);

  std::unordered_map<std::string, CompiledFormat> cache_;
  std::string key_;  // reused lookup key
};

}  // namespace lumvane
