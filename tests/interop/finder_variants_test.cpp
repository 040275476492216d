#include <gtest/gtest.h>

#include <cstring>

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
      {[](uint32_t* count) { return UsbFinderC_FindHidDevicesByKey("ßö", count); },
       [] { return CS_UsbFinder_FindHidDevicesByKey("ßö"); },
       {}},
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
  const std::string path = WideToNarrow(kForeignPath);
  HIDD_ATTRIBUTES attributes{};
  UsbFinderC_GetUsbDeviceAttribute(path.c_str(), &attributes);
  EXPECT_EQ(attributes.VendorID, 0x1234);
  EXPECT_FALSE(UsbFinderC_OpenDevice(""));
  EXPECT_FALSE(UsbFinderC_OpenDevice(nullptr));
  UsbFinderC_CloseDevice();
  EXPECT_TRUE(UsbFinderC_OpenDevice(path.c_str()));
  UsbFinderC_CloseDevice();
  UsbFinderC_CloseDevice();
  EXPECT_EQ(platform::OpenHandleCount(), 0u);
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

class Sweep : public ::testing::Test {
 protected:
  // Until a run has no call left to fail. A run may do its work in spite of a failed call.
  static void RunAll(const Swept& swept) {
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

  static DWORD Echo(ScriptedDevice& device, const Report& written) {
    device.Deliver(written, 1);
    return 0;
  }

  ScriptedDevice device_{kScriptedPath, Echo};
  const std::wstring wide_path_ = kScriptedPath;
  const std::string path_ = WideToNarrow(kScriptedPath);
};

TEST_F(Sweep, Lists) {
  Wide list;
  RunAll({"UsbFinder_FindHidDevicesByDefaultDeviceId",
          [&] {
            list = {L"left over"};
            UsbFinder_FindHidDevicesByDefaultDeviceId(L"1234", L"abcd", list);
          },
          [&] { return list == Wide{wide_path_}; }, [&] { return list.empty(); }});
  char** texts = nullptr;
  uint32_t count = 0;
  Narrow narrow;
  RunAll({"UsbFinderC_EnumHidDeviceList", [&] { texts = UsbFinderC_EnumHidDeviceList(&count); },
          [&] { return (narrow = TakeTexts(texts, count)) == Narrow{path_}; },
          // A text that the system refuses to convert is an empty one.
          [&] { return narrow.empty() || narrow == Narrow{""}; }});
  SAFEARRAY* array = nullptr;
  Wide wide;
  RunAll({"CS_UsbFinder_FindHidDevicesByKey",
          [&] { array = CS_UsbFinder_FindHidDevicesByKey("col05"); },
          [&] { return array != nullptr && (wide = TakeTexts(array)) == Wide{wide_path_}; },
          [&] { return array == nullptr || wide.empty(); }});
}

TEST_F(Sweep, Commands) {
  const DataRecord10 marked = {{9, 9, 9, 9, 9, 9, 9, 9, 9, 9}};
  DataRecord10 record;
  bool worked = false;
  RunAll({"UsbFinderC_GetData",
          [&] {
            record = marked;
            worked = UsbFinderC_GetData(path_.c_str(), 0x42, &record);
          },
          [&] { return worked; },
          [&] { return std::memcmp(&record, &marked, sizeof record) == 0; }});
  SAFEARRAY* array = nullptr;
  Report bytes;
  RunAll({"CS_UsbFinder_GetDeviceOnLineWithUsbAddress",
          [&] { array = CS_UsbFinder_GetDeviceOnLineWithUsbAddress(path_.c_str()); },
          [&] { return array != nullptr && (bytes = TakeBytes(array)) != Report(17); },
          [&] { return array == nullptr || bytes == Report(17); }});
  HIDD_ATTRIBUTES attributes;
  RunAll({"UsbFinder_GetUsbDeviceAttribute",
          [&] {
            attributes = {};
            UsbFinder_GetUsbDeviceAttribute(wide_path_, &attributes);
          },
          [&] { return attributes.VendorID == 0x1234; }, [&] { return attributes.VendorID == 0; }});
}

TEST_F(Sweep, PassThrough) {
  const Report request = Closed({0x08, 0x42});
  Report reply(17);
  bool worked = false;
  RunAll({"open, exchange, close",
          [&] {
            const bool opened = UsbFinderC_OpenDevice(path_.c_str());
            std::fill(reply.begin(), reply.end(), uint8_t{0xEE});
            const bool replied = UsbFinderC_ReadWriteDeviceData(request.data(), reply.data(), 17);
            UsbFinderC_CloseDevice();
            worked = opened && replied;
          },
          [&] { return worked; }, [&] { return reply == Report(17) || reply == request; }});
}

}  // namespace
}  // namespace perilink::testing
