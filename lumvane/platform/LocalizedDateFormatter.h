// Dates as a person reads them: the locale's short date style and medium time
// style ("11/14/23, 11:13:20 PM" in en_US, "14.11.23, 23:13:20" in de_DE),
// formatted by ICU in a given locale and time zone.
//
// The current locale comes from the first non-empty of LC_ALL, LC_TIME and
// LANG, in POSIX form: "de_DE.UTF-8" or "de_DE.UTF-8@euro" is the ICU locale
// de_DE (codeset and modifier dropped). "C", "POSIX" or nothing at all mean
// en_US_POSIX, whose dates read like en_US. The current time zone is the
// host's as ICU detects it: TZ when set, else the system's zone setting.
//
// Thread-safety: a formatter is not safe for concurrent use (ICU formatters
// keep scratch state); give each thread its own or use LVLocalizedDateString,
// which builds one per call.
#pragma once

#include <memory>
#include <string>

#include "lumvane/platform/Date.h"

#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class DateFormat;
U_NAMESPACE_END

namespace lumvane {

class LocalizedDateFormatter final {
 public:
  // `locale` is an ICU or POSIX locale name ("de_DE", "de_DE.UTF-8"),
  // `timeZone` an Olson zone id ("Europe/Berlin"); an unknown zone id gives
  // ICU's unknown zone, which formats as GMT.
  LocalizedDateFormatter(const std::string& locale, const std::string& timeZone);
  // The current locale and time zone, read from the environment now.
  static LocalizedDateFormatter currentLocaleFormatter();
  ~LocalizedDateFormatter();
  LocalizedDateFormatter(LocalizedDateFormatter&&) noexcept;
  LocalizedDateFormatter& operator=(LocalizedDateFormatter&&) noexcept;

  // When ICU cannot build a formatter, dates are written in ISO 8601 UTC
  // ("2023-11-14T22:13:20Z") instead.
  std::string stringFromDate(Date date) const;

  // The ICU locale name for a POSIX locale value ("C" and empty give
  // "en_US_POSIX").
  static std::string icuLocaleName(const std::string& posixLocale);
  // The locale named by LC_ALL, LC_TIME or LANG, as an ICU locale name.
  static std::string currentLocaleName();

 private:
  explicit LocalizedDateFormatter(std::unique_ptr<icu::DateFormat> format);
  std::unique_ptr<icu::DateFormat> format_;
};

// A date in the current locale and time zone, short date and medium time.
std::string LVLocalizedDateString(Date date);

}  // namespace lumvane
