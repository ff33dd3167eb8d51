#include "lumvane/platform/LocalizedDateFormatter.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

// 2023-11-14 22:13:20.123 UTC.
const Date kDate{std::chrono::microseconds(1700000000123456)};
const std::string kNarrowNoBreakSpace = "\xe2\x80\xaf";

TEST(LocalizedDateFormatterTest, ShortDateMediumTimeInLocaleAndZone) {
  EXPECT_EQ(LocalizedDateFormatter("en_US", "Europe/Berlin").stringFromDate(kDate),
            "11/14/23, 11:13:20" + kNarrowNoBreakSpace + "PM");
  EXPECT_EQ(LocalizedDateFormatter("de_DE", "UTC").stringFromDate(kDate), "14.11.23, 22:13:20");
  EXPECT_EQ(LocalizedDateFormatter::icuLocaleName("de_DE.UTF-8@euro"), "de_DE");
  EXPECT_EQ(LocalizedDateFormatter::icuLocaleName("C.UTF-8"), "en_US_POSIX");
  EXPECT_EQ(LocalizedDateFormatter::icuLocaleName(""), "en_US_POSIX");
}

TEST(LocalizedDateFormatterTest, CurrentLocaleAndZoneComeFromTheEnvironment) {
  using testing::ScopedEnv;
  ScopedEnv all("LC_ALL", nullptr);
  ScopedEnv time("LC_TIME", "de_DE.UTF-8");
  ScopedEnv lang("LANG", "en_US.UTF-8");
  {
    ScopedEnv tz("TZ", "Europe/Berlin");
    EXPECT_EQ(LVLocalizedDateString(kDate), "14.11.23, 23:13:20");
  }
  ScopedEnv tz("TZ", "America/New_York");
  ScopedEnv posix("LC_ALL", "C");
  EXPECT_EQ(LVLocalizedDateString(kDate), "11/14/23, 5:13:20" + kNarrowNoBreakSpace + "PM");
}

}  // namespace
}  // namespace lumvane
