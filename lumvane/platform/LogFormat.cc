#include "lumvane/platform/LogFormat.h"

#include <cstdio>
#include <cstring>

namespace lumvane {
namespace logformat {
namespace {

// snprintf into a std::string with one argument.
template <typename T>
void appendPrintf(std::string& out, const std::string& directive, T value) {
  char buf[128];
  int n = std::snprintf(buf, sizeof buf, directive.c_str(), value);
  if (n < 0) return;
  if (static_cast<size_t>(n) < sizeof buf) {
    out.append(buf, static_cast<size_t>(n));
    return;
  }
  std::string big(static_cast<size_t>(n) + 1, '\0');
  std::snprintf(big.data(), big.size(), directive.c_str(), value);
  out.append(big.data(), static_cast<size_t>(n));
}

const char* kNull = "(null)";

}  // namespace

std::string format(const char* fmt, const Arg* args, std::size_t count) {
  std::string out;
  std::size_t next = 0;
  for (const char* p = fmt; *p; ++p) {
    if (*p != '%') {
      out.push_back(*p);
      continue;
    }
    if (p[1] == '%') {
      out.push_back('%');
      ++p;
      continue;
    }
    // %[flags][width][.precision][length]conversion
    const char* start = p++;
    std::string flagsWidth;
    while (*p && std::strchr("-+ #0", *p)) flagsWidth.push_back(*p++);
    while (*p >= '0' && *p <= '9') flagsWidth.push_back(*p++);
    if (*p == '.') {
      flagsWidth.push_back(*p++);
      while (*p >= '0' && *p <= '9') flagsWidth.push_back(*p++);
    }
    while (*p && std::strchr("hlqjztL", *p)) ++p;  // width of the argument is known
    char conv = *p;
    if (!conv) {
      out.append(start);
      break;
    }
    const Arg* arg = next < count ? &args[next++] : nullptr;
    const std::string directive = "%" + flagsWidth;
    switch (conv) {
      case '@':
        out += (arg && arg->kind != Arg::Kind::Absent) ? arg->text : kNull;
        break;
      case 's':
        appendPrintf(out, directive + "s",
                     (arg && arg->kind == Arg::Kind::Text) ? arg->text.c_str() : kNull);
        break;
      case 'd':
      case 'i':
        appendPrintf(out, directive + "lld",
                     arg ? (arg->kind == Arg::Kind::Double ? static_cast<long long>(arg->d) : arg->i)
                         : 0LL);
        break;
      case 'u':
      case 'x':
      case 'X':
      case 'o':
        appendPrintf(out, directive + "ll" + conv,
                     arg ? (arg->kind == Arg::Kind::Double
                                ? static_cast<unsigned long long>(static_cast<long long>(arg->d))
                                : arg->u)
                         : 0ULL);
        break;
      case 'c':
        appendPrintf(out, directive + "c", arg ? static_cast<int>(arg->i) : 0);
        break;
      case 'f':
      case 'F':
      case 'e':
      case 'E':
      case 'g':
      case 'G':
      case 'a':
      case 'A': {
        double d = 0;
        if (arg) {
          d = arg->kind == Arg::Kind::Double     ? arg->d
              : arg->kind == Arg::Kind::Unsigned ? static_cast<double>(arg->u)
                                                 : static_cast<double>(arg->i);
        }
        appendPrintf(out, directive + conv, d);
        break;
      }
      default:
        out.append(start, static_cast<size_t>(p - start + 1));
        break;
    }
  }
  return out;
}

}  // namespace logformat
}  // namespace lumvane
