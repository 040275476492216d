// Discovery by the real DLL, through its three families, on the HID devices that Wine presents:
// two of vendor 845e, whose paths name neither an interface nor a collection.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "perilink/finder.h"
#include "platform/win32.h"

namespace perilink {
namespace {

using Paths = std::vector<std::wstring>;

Paths TakeNarrow(char** list, uint32_t count) {
  EXPECT_NE(list, nullptr);
  Paths paths;
  for (uint32_t i = 0; i < count; ++i) {
    const std::string text = list[i];
    paths.emplace_back(text.begin(), text.end());
  }
  UsbFinderC_Free(list, static_cast<int32_t>(count));
  return paths;
}

Paths TakeManaged(SAFEARRAY* array) {
  Paths paths;
  VARTYPE type = VT_EMPTY;
  LONG first = -1;
  LONG last = -2;
  EXPECT_EQ(SafeArrayGetDim(array), 1u);
  EXPECT_EQ(SafeArrayGetVartype(array, &type), S_OK);
  EXPECT_EQ(type, VT_BSTR);
  EXPECT_EQ(SafeArrayGetLBound(array, 1, &first), S_OK);
  EXPECT_EQ(first, 0);
  EXPECT_EQ(SafeArrayGetUBound(array, 1, &last), S_OK);
  for (LONG i = first; i <= last; ++i) {
    BSTR text = nullptr;
    EXPECT_EQ(SafeArrayGetElement(array, &i, &text), S_OK);
    paths.emplace_back(text, SysStringLen(text));
    SysFreeString(text);
  }
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
  return paths;
}

Paths All() {
  Paths paths;
  UsbFinder_EnumHidDeviceList(paths);
  return paths;
}

// The same question, asked in the three families.
struct Question {
  const char* name;
  std::function<void(Paths&)> wide;
  std::function<char**(uint32_t*)> narrow;
  std::function<SAFEARRAY*()> managed;
  std::function<bool(const std::wstring&)> wanted;
};

bool Holds(const std::wstring& path, const wchar_t* part) {
  return path.find(part) != std::wstring::npos;
}

std::vector<Question> Questions() {
  return {
      {"all", UsbFinder_EnumHidDeviceList, UsbFinderC_EnumHidDeviceList,
       CS_UsbFinder_EnumHidDeviceList, [](const std::wstring&) { return true; }},
      {"vendor and product",
       [](Paths& paths) { UsbFinder_FindHidDevices(L"845E", L"0001", paths); },
       [](uint32_t* count) { return UsbFinderC_FindHidDevices("845E", "0001", count); },
       [] { return CS_UsbFinder_FindHidDevices("845E", "0001"); },
       [](const std::wstring& path) { return Holds(path, L"vid_845e&pid_0001"); }},
      {"vendor", [](Paths& paths) { UsbFinder_FindHidDevices(L"845e", L"", paths); },
       [](uint32_t* count) { return UsbFinderC_FindHidDevices("845e", "", count); },
       [] { return CS_UsbFinder_FindHidDevices("845e", ""); },
       [](const std::wstring& path) { return Holds(path, L"vid_845e&pid_"); }},
      {"key", [](Paths& paths) { UsbFinder_FindHidDevicesByKey(L"PID_0002", paths); },
       [](uint32_t* count) { return UsbFinderC_FindHidDevicesByKey("PID_0002", count); },
       [] { return CS_UsbFinder_FindHidDevicesByKey("PID_0002"); },
       [](const std::wstring& path) { return Holds(path, L"pid_0002"); }},
      {"empty key", [](Paths& paths) { UsbFinder_FindHidDevicesByKey(L"", paths); },
       [](uint32_t* count) { return UsbFinderC_FindHidDevicesByKey("", count); },
       [] { return CS_UsbFinder_FindHidDevicesByKey(""); },
       [](const std::wstring&) { return false; }},
      {"interface and collection",
       [](Paths& paths) { UsbFinder_FindHidDevicesByDeviceId(L"845e", L"", 1, 5, paths); },
       [](uint32_t* count) { return UsbFinderC_FindHidDevicesByDeviceId("845e", "", 1, 5, count); },
       [] { return CS_UsbFinder_FindHidDevicesByDeviceId("845e", "", 1, 5); },
       [](const std::wstring& path) { return Holds(path, L"mi_01&col05"); }},
      {"default pair",
       [](Paths& paths) { UsbFinder_FindHidDevicesByDefaultDeviceId(L"845e", L"0001", paths); },
       [](uint32_t* count) {
         return UsbFinderC_FindHidDevicesByDefaultDeviceId("845e", "0001", count);
       },
       [] { return CS_UsbFinder_FindHidDevicesByDefaultDeviceId("845e", "0001"); },
       [](const std::wstring& path) { return Holds(path, L"mi_01&col05"); }},
  };
}

TEST(Discovery, FamiliesAgreeOnWhatIsPresent) {
  const Paths all = All();
  ASSERT_GE(all.size(), 2u);
  for (const Question& question : Questions()) {
    SCOPED_TRACE(question.name);
    Paths expected;
    std::copy_if(all.begin(), all.end(), std::back_inserter(expected), question.wanted);
    Paths wide = {L"replaced"};
    question.wide(wide);
    EXPECT_EQ(wide, expected);
    uint32_t count = 77;
    char** narrow = question.narrow(&count);
    EXPECT_EQ(TakeNarrow(narrow, count), expected);
    EXPECT_EQ(TakeManaged(question.managed()), expected);
  }
}

TEST(Discovery, WholePathFindsItsInterface) {
  for (const std::wstring& path : All()) {
    Paths found;
    UsbFinder_FindHidDevicesByKey(path, found);
    EXPECT_EQ(found, Paths{path});
  }
}

TEST(Discovery, AttributesInBothFamilies) {
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
}

TEST(Discovery, LibraryBuild) {
  EXPECT_EQ(TakeManaged(CS_UsbFinder_GetDllVersion()), Paths{L"x64"});
}

// Busy blocks in all heaps of the process.
size_t BusyBlocks() {
  HANDLE heaps[64];
  const DWORD count = GetProcessHeaps(64, heaps);
  size_t busy = 0;
  for (DWORD i = 0; i < std::min<DWORD>(count, 64); ++i) {
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(heaps[i], &entry))
      busy += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0;
  }
  return busy;
}

TEST(Discovery, ReleasedListsAreGone) {
  const auto ask_all = [] {
    for (const Question& question : Questions()) {
      uint32_t count = 0;
      char** narrow = question.narrow(&count);
      UsbFinderC_Free(narrow, static_cast<int32_t>(count));
      SafeArrayDestroy(question.managed());
    }
  };
  constexpr size_t kRounds = 20;
  for (size_t i = 0; i < kRounds; ++i)
    ask_all();
  const size_t before = BusyBlocks();
  ASSERT_GT(before, 0u);
  for (size_t i = 0; i < kRounds; ++i)
    ask_all();
  // One block kept in one of the lists would make kRounds of them.
  EXPECT_LT(BusyBlocks(), before + kRounds / 2);
}

}  // namespace
}  // namespace perilink
