#include <gtest/gtest.h>

#include "perilink/finder.h"
#include "platform/win32.h"
#include "support/scripted_device.h"
#include "transport/discovery.h"

namespace perilink::testing {
namespace {

// In the order in which they are plugged in.
const HidPathList kPaths = {
    L"\\\\?\\hid#vid_1234&pid_abcd&mi_00#7&aa#{4d1e55b2}",
    L"\\\\?\\hid#vid_1234&pid_abcd&mi_01&col05#7&bb#{4d1e55b2}",
    L"\\\\?\\hid#vid_1234&pid_abcd&mi_01&col12#7&cc#{4d1e55b2}",
    L"\\\\?\\hid#vid_1234&pid_ef01&mi_01&col05#7&dd#{4d1e55b2}",
    L"\\\\?\\HID#VID_1234&PID_ABCD&MI_01&COL05#7&EE#{4d1e55b2}",
    L"\\\\?\\hid#vid_99é9&pid_0001#7&Ff#{4d1e55b2}",
};

class Discovery : public ::testing::Test {
 protected:
  Discovery() {
    for (const std::wstring& path : kPaths) {
      devices_.push_back(std::make_unique<ScriptedDevice>(path));
    }
  }
  ~Discovery() override {
    for (const auto& device : devices_)
      EXPECT_EQ(device->opens(), 0);
    EXPECT_EQ(platform::OpenHandleCount(), 0u);
  }

  std::vector<std::unique_ptr<ScriptedDevice>> devices_;
};

HidPathList Picked(std::initializer_list<size_t> indices) {
  HidPathList paths;
  for (const size_t index : indices)
    paths.push_back(kPaths[index]);
  return paths;
}

TEST_F(Discovery, SearchesSelectByKeyInEnumerationOrder) {
  HidPathList list = {L"left over"};  // which every search replaces
  const auto by_id = [&](const wchar_t* vendor, const wchar_t* product, int number,
                         int collection) {
    UsbFinder_FindHidDevicesByDeviceId(vendor, product, number, collection, list);
    return list;
  };
  const auto by_key = [&](const wchar_t* key) {
    UsbFinder_FindHidDevicesByKey(key, list);
    return list;
  };
  const auto find = [&](const wchar_t* vendor, const wchar_t* product) {
    UsbFinder_FindHidDevices(vendor, product, list);
    return list;
  };
  UsbFinder_EnumHidDeviceList(list);
  EXPECT_EQ(list, kPaths);
  EXPECT_EQ(find(L"1234", L"ABCD"), Picked({0, 1, 2}));
  EXPECT_EQ(find(L"1234", L""), Picked({0, 1, 2, 3}));
  EXPECT_EQ(find(L"4321", L"abcd"), Picked({}));
  EXPECT_EQ(find(L"99é9", L""), Picked({5}));
  EXPECT_EQ(by_key(L""), Picked({}));
  EXPECT_EQ(by_key(L"COL05"), Picked({1, 3}));
  // An upper-case letter in a path is beyond the reach of a lower-cased key.
  EXPECT_EQ(by_key(L"7&Ff"), Picked({}));
  EXPECT_EQ(by_id(L"1234", L"ABCD", 1, 5), Picked({1}));
  EXPECT_EQ(by_id(L"1234", L"ABCD", 1, 4), Picked({}));
  EXPECT_EQ(by_id(L"1234", L"ABCD", INT32_MIN, INT32_MIN), Picked({}));
  EXPECT_EQ(by_id(L"1234", L"", 1, 5), Picked({1, 3}));
  EXPECT_EQ(by_id(L"", L"", 1, 5), Picked({}));
  UsbFinder_FindHidDevicesByDefaultDeviceId(L"1234", L"abcd", list);
  EXPECT_EQ(list, Picked({1}));
}

TEST_F(Discovery, KeysAreBoundedAndNeverGuessed) {
  HidPathList list = {kPaths[1]};
  // The key may be an element of the list that it fills.
  UsbFinder_FindHidDevicesByKey(list[0], list);
  EXPECT_EQ(list, Picked({1}));
  // No code point, hence not in the code page: no key, rather than one with a replacement in it.
  const std::wstring no_text(1, static_cast<wchar_t>(0xD800));
  ScriptedDevice strange(L"\\\\?\\hid#vid_\xFFFD&pid_0001#7");
  UsbFinder_FindHidDevices(no_text, L"0001", list);
  EXPECT_EQ(list, Picked({}));
  // What a long id has beyond 255 characters of the key does not count; an id ends at a NUL.
  ScriptedDevice lengthy(L"\\\\?\\hid#vid_" + std::wstring(251, L'a') + L"#7");
  UsbFinder_FindHidDevices(std::wstring(400, L'A'), L"0001", list);
  EXPECT_EQ(list, HidPathList{lengthy.Path()});
  UsbFinder_FindHidDevices(std::wstring(L"1234\0junk", 9), L"ef01", list);
  EXPECT_EQ(list, Picked({3}));
}

TEST_F(Discovery, AFailingSystemCallEndsTheEnumerationWithWhatItHas) {
  const auto enumerate = [](const char* function, uint64_t nth) {
    HidPathList list = {L"left over"};
    platform::ArmFault(function, nth);
    UsbFinder_EnumHidDeviceList(list);
    platform::DisarmFault();
    return list;
  };
  EXPECT_EQ(enumerate("SetupDiGetClassDevsW", 1), Picked({}));
  EXPECT_EQ(enumerate("SetupDiEnumDeviceInterfaces", 3), Picked({0, 1}));
  EXPECT_EQ(enumerate("SetupDiGetDeviceInterfaceDetailW", 2), Picked({0}));
}

}  // namespace
}  // namespace perilink::testing
