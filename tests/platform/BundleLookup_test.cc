#include "lumvane/platform/BundleLookup.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using testing::BundlePropertyList;
using testing::TempDir;
using testing::WriteFile;

TEST(BundleLookupTest, ReadsXmlAndBinaryListsPreferringContents) {
  TempDir dir;
  const std::string xmlApp = dir.file("Xml.app"), binApp = dir.file("Bin.app");
  std::filesystem::create_directories(xmlApp + "/Contents");
  std::filesystem::create_directories(binApp);
  WriteFile(xmlApp + "/Contents/Info.plist", BundlePropertyList("com.example.xml", false));
  WriteFile(xmlApp + "/Info.plist", BundlePropertyList("com.example.top", false));
  WriteFile(binApp + "/Info.plist", BundlePropertyList("com.example.bin", true));
  ASSERT_EQ(BundlePropertyList("x", true).substr(0, 6), "bplist");

  EXPECT_EQ(DefaultBundleLookup().bundleAtPath(xmlApp).bundleIdentifier, "com.example.xml");
  EXPECT_EQ(DefaultBundleLookup().bundleAtPath(binApp).bundleIdentifier, "com.example.bin");
}

TEST(BundleLookupTest, TellsNoBundleFromBundleWithoutIdentifier) {
  TempDir dir;
  EXPECT_FALSE(DefaultBundleLookup().bundleAtPath(dir.file("missing.app")).found);

  for (const std::string& contents :
       {std::string("not a property list"),
        std::string("<plist><dict><key>BundleIdentifier</key><integer>7</integer></dict></plist>"),
        std::string("<plist><array><string>com.example</string></array></plist>"), std::string()}) {
    TempDir bundle;
    WriteFile(bundle.file("Info.plist"), contents);
    BundleInfo info = DefaultBundleLookup().bundleAtPath(bundle.path());
    EXPECT_TRUE(info.found) << contents;
    EXPECT_FALSE(info.bundleIdentifier) << contents;
  }

  // A list over 1 MiB is never read, even when it would name an identifier.
  std::string big = BundlePropertyList("com.example.big", false);
  big.insert(big.find("<plist"), std::string((1 << 20) + 1, ' '));
  WriteFile(dir.file("Info.plist"), big);
  EXPECT_FALSE(DefaultBundleLookup().bundleAtPath(dir.path()).bundleIdentifier);
  WriteFile(dir.file("Info.plist"), BundlePropertyList("com.example.big", false));
  EXPECT_EQ(DefaultBundleLookup().bundleAtPath(dir.path()).bundleIdentifier, "com.example.big");
}

}  // namespace
}  // namespace lumvane
