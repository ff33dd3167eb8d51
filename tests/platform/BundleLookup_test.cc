#include "lumvane/platform/BundleLookup.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <filesystem>

#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using testing::TempDir;
using testing::WriteFile;

std::string PropertyList(const std::string& identifier, bool binary) {
  plist_t dict = plist_new_dict();
  plist_dict_set_item(dict, "BundleIdentifier", plist_new_string(identifier.c_str()));
  char* data = nullptr;
  uint32_t length = 0;
  binary ? plist_to_bin(dict, &data, &length) : plist_to_xml(dict, &data, &length);
  std::string out(data, length);
  binary ? plist_to_bin_free(data) : plist_to_xml_free(data);
  plist_free(dict);
  return out;
}

TEST(BundleLookupTest, ReadsXmlAndBinaryListsPreferringContents) {
  TempDir dir;
  const std::string xmlApp = dir.file("Xml.app"), binApp = dir.file("Bin.app");
  std::filesystem::create_directories(xmlApp + "/Contents");
  std::filesystem::create_directories(binApp);
  WriteFile(xmlApp + "/Contents/Info.plist", PropertyList("com.example.xml", false));
  WriteFile(xmlApp + "/Info.plist", PropertyList("com.example.top", false));
  WriteFile(binApp + "/Info.plist", PropertyList("com.example.bin", true));
  ASSERT_EQ(PropertyList("x", true).substr(0, 6), "bplist");

  BundleInfo xml = DefaultBundleLookup().bundleAtPath(xmlApp);
  EXPECT_TRUE(xml.found);
  EXPECT_EQ(xml.bundleIdentifier, "com.example.xml");
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
  std::string big = PropertyList("com.example.big", false);
  big.insert(big.find("<plist"), std::string((1 << 20) + 1, ' '));
  WriteFile(dir.file("Info.plist"), big);
  EXPECT_FALSE(DefaultBundleLookup().bundleAtPath(dir.path()).bundleIdentifier);
  WriteFile(dir.file("Info.plist"), PropertyList("com.example.big", false));
  EXPECT_EQ(DefaultBundleLookup().bundleAtPath(dir.path()).bundleIdentifier, "com.example.big");
}

}  // namespace
}  // namespace lumvane
