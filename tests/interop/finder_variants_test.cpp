#include <gtest/gtest.h>

#include "perilink/finder.h"
#include "platform/text.h"
#include "support/interop_values.h"
#include "support/scripted_device.h"

namespace perilink::testing {
namespace {

using Wide = std::vector<std::wstring>;
using Narrow = std::vector<std::string>;

const wchar_t* const kForeignPath = L"\\\\?\\hid#vid_1234&pid_abcd&mi_01&col05#Größe 鼠";

Narrow NarrowOf(const Wide& texts) {
  Narrow narrow;
  for (const std::wstring& text : texts)
    narrow.push_back(WideToNarrow(text));
  return narrow;
}

// What a narrow list export returned, released; it must not return null.
template <typename List>
Narrow Listed(List list) {
  uint32_t count = 99;
  char** array = list(&count);
  EXPECT_NE(array, nullptr);
  return TakeTexts(array, count);
}

TEST(FinderVariants, ListsGoThroughTheCodePage) {
  ScriptedDevice first(kForeignPath);
  ScriptedDevice second(L"\\\\?\\hid#vid_1234&pid_0001");
  const Wide both = {first.Path(), second.Path()};
  const Wide one = {first.Path()};
  // Narrow and managed form of each search, with what it finds.
  const struct {
    std::function<char**(uint32_t*)> narrow;
    std::function<SAFEARRAY*()> managed;
    Wide found;
  } kCases[] = {
      {UsbFinderC_EnumHidDeviceList, CS_UsbFinder_EnumHidDeviceList, both},
      {[](uint32_t* count) { return UsbFinderC_FindHidDevices("1234", "", count); },
       [] { return CS_UsbFinder_FindHidDevices("1234", ""); }, both},
      {[](uint32_t* count) { return UsbFinderC_FindHidDevicesByKey("röße 鼠", count); },
       [] { return CS_UsbFinder_FindHidDevicesByKey("röße 鼠"); }, one},
      {[](uint32_t* count) {
         return UsbFinderC_FindHidDevicesByDeviceId("1234", "ABCD", 1, 5, count);
       },
       [] { return CS_UsbFinder_FindHidDevicesByDeviceId("1234", "ABCD", 1, 5); }, one},
      {[](uint32_t* count) {
         return UsbFinderC_FindHidDevicesByDefaultDeviceId("1234", "ABCD", count);
       },
       [] { return CS_UsbFinder_FindHidDevicesByDefaultDeviceId("1234", "ABCD"); }, one},
      // Nothing is found for empty and for null text, and for bytes that are no text.
      {[](uint32_t* count) { return UsbFinderC_FindHidDevicesByKey("", count); },
       [] { return CS_UsbFinder_FindHidDevicesByKey(nullptr); },
       {}},
      {[](uint32_t* count) { return UsbFinderC_FindHidDevices("12\xFF\x34", "abcd", count); },
       [] { return CS_UsbFinder_FindHidDevices(nullptr, ""); },
       {}},
  };
  for (const auto& test : kCases) {
    const size_t row = static_cast<size_t>(&test - kCases);
    EXPECT_EQ(Listed(test.narrow), NarrowOf(test.found)) << row;
    EXPECT_EQ(TakeTexts(test.managed()), test.found) << row;
  }
  UsbFinderC_Free(nullptr, 3);
  EXPECT_EQ(TakeTexts(CS_UsbFinder_GetDllVersion()), Wide{L"x64"});
}

TEST(FinderVariants, PathsGoThroughTheCodePage) {
  ScriptedDevice device(kForeignPath);
  EXPECT_FALSE(UsbFinderC_OpenDevice(""));
  EXPECT_FALSE(UsbFinderC_OpenDevice(nullptr));
  const std::string path = WideToNarrow(kForeignPath);
  EXPECT_TRUE(UsbFinderC_OpenDevice(path.c_str()));
  UsbFinderC_CloseDevice();
  UsbFinderC_CloseDevice();
  EXPECT_EQ(platform::OpenHandleCount(), 0u);
  HIDD_ATTRIBUTES attributes{};
  UsbFinderC_GetUsbDeviceAttribute(path.c_str(), &attributes);
  EXPECT_EQ(attributes.VendorID, 0x1234);
}

TEST(FinderVariants, RawExchangeInBothForms) {
  const Report answer = Closed({0x08, 1, 2, 3});
  ScriptedDevice device(kScriptedPath, [&](ScriptedDevice& self, const Report&) {
    self.Deliver(answer, 10);
    return DWORD{0};
  });
  ASSERT_TRUE(UsbFinderC_OpenDevice(WideToNarrow(kScriptedPath).c_str()));
  Report frame(17, 0x33);
  EXPECT_TRUE(UsbFinder_WriteDeviceData(frame.data(), 17));
  Sleep(20);
  EXPECT_EQ(TakeBytes(CS_UsbFinder_ReadWriteDeviceData(frame.data(), 17)), answer);
  // Request and reply in one place.
  EXPECT_TRUE(UsbFinderC_ReadWriteDeviceData(frame.data(), frame.data(), 17));
  EXPECT_EQ(frame, answer);
  EXPECT_EQ(device.writes().back().report, Report(17, 0x33));
  // No length that a device refuses leaves anything but zeros, and nothing beyond the length.
  for (const uint8_t length : {uint8_t{0}, uint8_t{16}, uint8_t{255}}) {
    const std::vector<uint8_t> request(length, 0x33);
    std::vector<uint8_t> reply(256, 0xEE);
    EXPECT_FALSE(UsbFinderC_ReadWriteDeviceData(request.data(), reply.data(), length));
    EXPECT_EQ(std::count(reply.begin(), reply.end(), 0), length);
    EXPECT_EQ(reply[length], 0xEE);
    EXPECT_TRUE(TakeBytes(CS_UsbFinder_ReadWriteDeviceData(request.data(), length)).empty());
  }
  UsbFinderC_CloseDevice();
  EXPECT_TRUE(TakeBytes(CS_UsbFinder_ReadWriteDeviceData(frame.data(), 17)).empty());
}

// ---- The nth call to the system fails, for every call and every n ------------------------------

// The calls that a failure must leave nothing behind of. Of those that release, nothing can be
// asked when they fail.
const char* const kCalls[] = {
    "SetupDiGetClassDevsW",
    "SetupDiEnumDeviceInterfaces",
    "SetupDiGetDeviceInterfaceDetailW",
    "MultiByteToWideChar",
    "WideCharToMultiByte",
    "SysAllocString",
    "SafeArrayCreate",
    "SafeArrayPutElement",
    "CreateFileW",
    "CreateEventW",
    "ResetEvent",
    "ReadFile",
    "WriteFile",
    "WaitForSingleObject",
    "CancelIo",
    "HidD_GetAttributes",
};

struct Swept {
  const char* name;
  std::function<void()> call;
  std::function<bool()> worked;
  std::function<bool()> failed_well;  // the outputs hold what is documented for a failure
};

// Until a run has no call left to fail. A run may do its work in spite of a failed call.
void Sweep(const Swept& swept) {
  for (const char* function : kCalls) {
    SCOPED_TRACE(std::string(swept.name) + ", " + function);
    uint64_t calls = 0;
    for (uint64_t nth = 1; nth <= calls + 1; ++nth) {
      platform::ArmFault(function, nth);
      swept.call();
      calls = platform::PlatformCallCount();
      platform::DisarmFault();
      EXPECT_EQ(platform::OpenHandleCount(), 0u) << "call " << nth;
      const bool worked = swept.worked();
      EXPECT_TRUE(worked || swept.failed_well()) << "call " << nth;
      EXPECT_TRUE(worked || calls >= nth);
    }
  }
}

TEST(FinderVariants, FailingCallsLeaveNothingBehind) {
  ScriptedDevice device(kScriptedPath, [](ScriptedDevice& self, const Report& written) {
    self.Deliver(written, 1);
    return DWORD{0};
  });
  const std::string path = WideToNarrow(kScriptedPath);
  const Report request = Closed({0x08, 0x42});
  char** texts = nullptr;
  uint32_t count = 0;
  Narrow narrow;
  SAFEARRAY* array = nullptr;
  Wide wide;
  Report bytes(17);
  HIDD_ATTRIBUTES attributes;
  bool worked = false;
  const Swept kSwept[] = {
      {"narrow list", [&] { texts = UsbFinderC_EnumHidDeviceList(&count); },
       [&] { return (narrow = TakeTexts(texts, count)) == Narrow{path}; },
       // A text that the system refuses to convert is an empty one.
       [&] { return narrow.empty() || narrow == Narrow{""}; }},
      {"managed list", [&] { array = CS_UsbFinder_FindHidDevicesByKey("col05"); },
       [&] { return array != nullptr && (wide = TakeTexts(array)) == Wide{kScriptedPath}; },
       [&] { return array == nullptr || wide.empty(); }},
      {"managed reply", [&] { array = CS_UsbFinder_GetDeviceOnLineWithUsbAddress(path.c_str()); },
       [&] { return array != nullptr && (bytes = TakeBytes(array)) != Report(17); },
       [&] { return array == nullptr || bytes == Report(17); }},
      {"attributes",
       [&] {
         attributes = {};
         UsbFinderC_GetUsbDeviceAttribute(path.c_str(), &attributes);
       },
       [&] { return attributes.VendorID == 0x1234; }, [&] { return attributes.VendorID == 0; }},
      {"raw exchange",
       [&] {
         const bool opened = UsbFinderC_OpenDevice(path.c_str());
         bytes.assign(17, 0xEE);
         worked = UsbFinderC_ReadWriteDeviceData(request.data(), bytes.data(), 17) && opened;
         UsbFinderC_CloseDevice();
       },
       [&] { return worked; }, [&] { return bytes == Report(17) || bytes == request; }},
  };
  for (const Swept& swept : kSwept)
    Sweep(swept);
}

}  // namespace
}  // namespace perilink::testing
