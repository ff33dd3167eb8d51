#include "lumvane/signpost/LogStoreTimestamp.h"

#include <cstdint>
#include <cstdio>

namespace lumvane {
namespace {

// Days since 1970-01-01 of a proleptic Gregorian date (era-based civil
// calendar arithmetic; exact for every year the store can hold).
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void CivilFromDays(int64_t z, int64_t* y, unsigned* m, unsigned* d) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  *d = doy - (153 * mp + 2) / 5 + 1;
  *m = mp < 10 ? mp + 3 : mp - 9;
  *y = static_cast<int64_t>(yoe) + era * 400 + (*m <= 2);
}

unsigned DaysInMonth(int64_t y, unsigned m) {
  static const unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  return m == 2 && leap ? 29 : kDays[m - 1];
}

// Reads exactly `n` decimal digits at `*pos`.
bool Digits(std::string_view s, size_t* pos, size_t n, unsigned* out) {
  if (s.size() < *pos + n) return false;
  unsigned v = 0;
  for (size_t i = 0; i < n; ++i) {
    const char c = s[*pos + i];
    if (c < '0' || c > '9') return false;
    v = v * 10 + static_cast<unsigned>(c - '0');
  }
  *pos += n;
  *out = v;
  return true;
}

bool Expect(std::string_view s, size_t* pos, char c) {
  if (*pos >= s.size() || s[*pos] != c) return false;
  ++*pos;
  return true;
}

struct Parsed {
  int64_t localMicros;
  int offsetMinutes;
};

std::optional<Parsed> Parse(std::string_view s) {
  size_t p = 0;
  unsigned year, month, day, hour, minute, second;
  if (!Digits(s, &p, 4, &year) || !Expect(s, &p, '-') || !Digits(s, &p, 2, &month) ||
      !Expect(s, &p, '-') || !Digits(s, &p, 2, &day)) {
    return std::nullopt;
  }
  if (p >= s.size() || (s[p] != ' ' && s[p] != 'T')) return std::nullopt;
  ++p;
  if (!Digits(s, &p, 2, &hour) || !Expect(s, &p, ':') || !Digits(s, &p, 2, &minute) ||
      !Expect(s, &p, ':') || !Digits(s, &p, 2, &second)) {
    return std::nullopt;
  }
  if (month < 1 || month > 12 || day < 1 || day > DaysInMonth(year, month) || hour > 23 ||
      minute > 59 || second > 60) {
    return std::nullopt;
  }
  int64_t micros = 0;
  if (p < s.size() && s[p] == '.') {
    ++p;
    int64_t scale = 100000;
    size_t digits = 0;
    while (p < s.size() && s[p] >= '0' && s[p] <= '9') {
      if (++digits > 9) return std::nullopt;
      micros += (s[p] - '0') * scale;
      scale /= 10;
      ++p;
    }
    if (digits == 0) return std::nullopt;
  }
  int offset = 0;
  if (p < s.size() && s[p] == 'Z') {
    ++p;
  } else {
    if (p >= s.size() || (s[p] != '+' && s[p] != '-')) return std::nullopt;
    const int sign = s[p] == '-' ? -1 : 1;
    ++p;
    unsigned oh, om = 0;
    if (!Digits(s, &p, 2, &oh)) return std::nullopt;
    if (p < s.size()) {
      if (s[p] == ':') ++p;
      if (!Digits(s, &p, 2, &om)) return std::nullopt;
    }
    if (oh > 23 || om > 59) return std::nullopt;
    offset = sign * static_cast<int>(oh * 60 + om);
  }
  if (p != s.size()) return std::nullopt;
  const int64_t days = DaysFromCivil(year, month, day);
  const int64_t secs = days * 86400 + hour * 3600 + minute * 60 + second;
  return Parsed{secs * 1000000 + micros, offset};
}

}  // namespace

std::optional<Date> ParseLogStoreTimestamp(std::string_view text) {
  const std::optional<Parsed> p = Parse(text);
  if (!p) return std::nullopt;
  const int64_t utc = p->localMicros - int64_t{p->offsetMinutes} * 60 * 1000000;
  return Date(std::chrono::microseconds(utc));
}

std::optional<int> LogStoreTimestampOffsetMinutes(std::string_view text) {
  const std::optional<Parsed> p = Parse(text);
  if (!p) return std::nullopt;
  return p->offsetMinutes;
}

std::string FormatLogStoreTimestamp(Date date, int offsetMinutes) {
  const int64_t local = date.time_since_epoch().count() + int64_t{offsetMinutes} * 60 * 1000000;
  int64_t secs = local / 1000000;
  int64_t micros = local % 1000000;
  if (micros < 0) {
    micros += 1000000;
    --secs;
  }
  int64_t days = secs / 86400;
  int64_t rem = secs % 86400;
  if (rem < 0) {
    rem += 86400;
    --days;
  }
  int64_t y;
  unsigned m, d;
  CivilFromDays(days, &y, &m, &d);
  const int absOffset = offsetMinutes < 0 ? -offsetMinutes : offsetMinutes;
  char buf[64];
  std::snprintf(buf, sizeof buf, "%04lld-%02u-%02u %02d:%02d:%02d.%06lld%c%02d%02d",
                static_cast<long long>(y), m, d, static_cast<int>(rem / 3600),
                static_cast<int>(rem / 60 % 60), static_cast<int>(rem % 60),
                static_cast<long long>(micros), offsetMinutes < 0 ? '-' : '+', absOffset / 60,
                absOffset % 60);
  return buf;
}

}  // namespace lumvane
