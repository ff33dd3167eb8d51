#include "lumvane/platform/LocalizedDateFormatter.h"

#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <cstdlib>
#include <ctime>
#include <utility>

namespace lumvane {
namespace {

std::unique_ptr<icu::DateFormat> makeFormat(const std::string& icuLocale,
                                            icu::TimeZone* zone /* adopted */) {
  std::unique_ptr<icu::TimeZone> owned(zone);
  std::unique_ptr<icu::DateFormat> format(icu::DateFormat::createDateTimeInstance(
      icu::DateFormat::kShort, icu::DateFormat::kMedium, icu::Locale(icuLocale.c_str())));
  if (format && owned) format->adoptTimeZone(owned.release());
  return format;
}

std::string isoUtc(Date date) {
  std::time_t seconds =
      std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()).count();
  std::tm tm{};
  gmtime_r(&seconds, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return buf;
}

}  // namespace

LocalizedDateFormatter::LocalizedDateFormatter(const std::string& locale,
                                               const std::string& timeZone)
    : format_(makeFormat(icuLocaleName(locale),
                         icu::TimeZone::createTimeZone(
                             icu::UnicodeString::fromUTF8(icu::StringPiece(timeZone))))) {}

LocalizedDateFormatter::LocalizedDateFormatter(std::unique_ptr<icu::DateFormat> format)
    : format_(std::move(format)) {}

LocalizedDateFormatter::~LocalizedDateFormatter() = default;
LocalizedDateFormatter::LocalizedDateFormatter(LocalizedDateFormatter&&) noexcept = default;
LocalizedDateFormatter& LocalizedDateFormatter::operator=(LocalizedDateFormatter&&) noexcept =
    default;

LocalizedDateFormatter LocalizedDateFormatter::currentLocaleFormatter() {
  // detectHostTimeZone reads TZ afresh, unlike ICU's cached default zone.
  return LocalizedDateFormatter(
      makeFormat(currentLocaleName(), icu::TimeZone::detectHostTimeZone()));
}

std::string LocalizedDateFormatter::stringFromDate(Date date) const {
  if (!format_) return isoUtc(date);
  // ICU dates are milliseconds since 1970 as a double.
  UDate udate = static_cast<double>(date.time_since_epoch().count()) / 1000.0;
  icu::UnicodeString text;
  format_->format(udate, text);
  std::string out;
  text.toUTF8String(out);
  return out;
}

std::string LocalizedDateFormatter::icuLocaleName(const std::string& posixLocale) {
  std::string name = posixLocale.substr(0, posixLocale.find_first_of(".@"));
  if (name.empty() || name == "C" || name == "POSIX") return "en_US_POSIX";
  return name;
}

std::string LocalizedDateFormatter::currentLocaleName() {
  for (const char* variable : {"LC_ALL", "LC_TIME", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value && *value) return icuLocaleName(value);
  }
  return icuLocaleName("");
}

std::string LVLocalizedDateString(Date date) {
  return LocalizedDateFormatter::currentLocaleFormatter().stringFromDate(date);
}

}  // namespace lumvane
