// Discovery by the real DLL, through its three families, on the HID devices that Wine presents:
// two of vendor 845e, whose paths name neither an interface nor a collection.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "perilink/finder.h"
#include "platform/win32.h"
#include "support/interop_values.h"

namespace perilink {
namespace {

using Paths = std::vector<std::wstring>;

// A narrow export's list, released.
Paths TakeNarrow(char** list, uint32_t count) {
  EXPECT_NE(list, nullptr);
  Paths paths;
  for (const std::string& text : testing::TakeTexts(list, count))
    paths.emplace_back(text.begin(), text.end());
  return paths;
}

// Each search in the three families, with a part of the paths that it finds.
TEST(Discovery, FamiliesAgreeOnWhatIsPresent) {
  const struct {
    const char* name;
    std::function<void(Paths&)> wide;
    std::function<char**(uint32_t*)> narrow;
    std::function<SAFEARRAY*()> managed;
    const wchar_t* part;
  } searches[] = {
      {"all", UsbFinder_EnumHidDeviceList, UsbFinderC_EnumHidDeviceList,
       CS_UsbFinder_EnumHidDeviceList, L""},
      {"vendor and product",
       [](Paths& paths) { UsbFinder_FindHidDevices(L"845E", L"0001", paths); },
       [](uint32_t* count) { return UsbFinderC_FindHidDevices("845E", "0001", count); },
       [] { return CS_UsbFinder_FindHidDevices("845E", "0001"); }, L"vid_845e&pid_0001"},
      {"key", [](Paths& paths) { UsbFinder_FindHidDevicesByKey(L"PID_0002", paths); },
       [](uint32_t* count) { return UsbFinderC_FindHidDevicesByKey("PID_0002", count); },
       [] { return CS_UsbFinder_FindHidDevicesByKey("PID_0002"); }, L"pid_0002"},
      {"interface and collection",
       [](Paths& paths) { UsbFinder_FindHidDevicesByDeviceId(L"845e", L"", 1, 5, paths); },
       [](uint32_t* count) { return UsbFinderC_FindHidDevicesByDeviceId("845e", "", 1, 5, count); },
       [] { return CS_UsbFinder_FindHidDevicesByDeviceId("845e", "", 1, 5); }, L"mi_01&col05"},
  };
  Paths all;
  UsbFinder_EnumHidDeviceList(all);
  ASSERT_GE(all.size(), 2u);
  for (const auto& search : searches) {
    SCOPED_TRACE(search.name);
    Paths expected;
    std::ranges::copy_if(all, std::back_inserter(expected), [&](const std::wstring& path) {
      return path.find(search.part) != std::wstring::npos;
    });
    Paths wide = {L"replaced"};
    search.wide(wide);
    EXPECT_EQ(wide, expected);
    uint32_t count = 77;
    char** narrow = search.narrow(&count);
    EXPECT_EQ(TakeNarrow(narrow, count), expected);
    EXPECT_EQ(testing::TakeTexts(search.managed()), expected);
  }
}

TEST(Discovery, AttributesAndBuild) {
  Paths paths;
  UsbFinder_FindHidDevices(L"845e", L"0001", paths);
  ASSERT_EQ(paths.size(), 1u);
  HIDD_ATTRIBUTES wide{};
  wide.Size = sizeof wide;
  UsbFinder_GetUsbDeviceAttribute(paths[0], &wide);
  HIDD_ATTRIBUTES narrow{};
  narrow.Size = sizeof narrow;
  UsbFinderC_GetUsbDeviceAttribute(std::string(paths[0].begin(), paths[0].end()).c_str(), &narrow);
  for (const HIDD_ATTRIBUTES& attributes : {wide, narrow}) {
    EXPECT_EQ(attributes.VendorID, 0x845E);
    EXPECT_EQ(attributes.ProductID, 0x0001);
  }
  EXPECT_EQ(testing::TakeTexts(CS_UsbFinder_GetDllVersion()), Paths{L"x64"});
}

}  // namespace
}  // namespace perilink
