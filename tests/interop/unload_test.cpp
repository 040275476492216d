// A host unloads the library as soon as it may: right after it has asked for the end, and in the
// middle of an upgrade. The same for both systems; real threads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "perilink/records.h"
#include "scenarios/bus.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"
#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace perilink {
namespace {

using Milliseconds = std::chrono::milliseconds;

#ifndef _WIN32
void* LoadLibraryA(const char* name) {
  return dlopen(name, RTLD_NOW);
}
constexpr auto FreeLibrary = dlclose;
constexpr auto GetProcAddress = dlsym;
#endif

struct Library {
  ~Library() { FreeLibrary(module); }
  template <typename Function>
  Function* Get(const char* name) {
    void* const found = reinterpret_cast<void*>(GetProcAddress(module, name));
    EXPECT_NE(found, nullptr) << name;
    return reinterpret_cast<Function*>(found);
  }

  decltype(LoadLibraryA("")) module = LoadLibraryA(PERILINK_LIBRARY);
};

// Where the device takes commands, when it does.
std::string PathOf(Library& library, const sim::Device& device) {
  auto* const find = library.Get<char**(const char*, uint32_t*)>("UsbFinderC_FindHidDevicesByKey");
  for (int tries = 0; tries < 6000; ++tries) {
    uint32_t count = 0;
    char** const found = find(device.CommandKey().c_str(), &count);
    const std::string path = count > 0 ? found[0] : "";
    library.Get<void(char**, int32_t)>("UsbFinderC_Free")(found, static_cast<int32_t>(count));
    const bool opens = library.Get<bool(const char*)>("UsbFinderC_OpenDevice")(path.c_str());
    library.Get<void()>("UsbFinderC_CloseDevice")();
    if (opens) return path;
    std::this_thread::sleep_for(Milliseconds(10));
  }
  return "";
}

TEST(Unload, RightAfterTheServersEndWasAskedFor) {
  const auto mouse = testing::NewDevice();
  mouse->Plug();
  for (int delay_ms : {0, 1, 30, 110}) {
    {
      Library library;
      const std::string path = PathOf(library, *mouse);
      library.Get<void(const char*, const char*, ServerReportCallback)>("UsbServerC_Start")(
          path.c_str(), path.c_str(), nullptr);
      library.Get<void()>("UsbServer_ReadAllFlashData")();
      std::this_thread::sleep_for(Milliseconds(delay_ms));
      library.Get<void()>("UsbServer_Exit")();
    }
    std::this_thread::sleep_for(Milliseconds(300));
  }
}

// The upgrade goes on: half a firmware would be worse. On a busy machine it may end before its end.
TEST(Unload, InTheMiddleOfAnUpgrade) {
  static std::atomic<bool> downloading{false};
  static std::atomic<int> result{0};
  constexpr uint16_t kVersion = 0x0345;
  const auto mouse = testing::NewDevice();
  mouse->Plug();
  const sim::Bytes file =
      sim::UpgradeFileBuilder(sim::ImageFor(*mouse, sim::MakeVirtualFirmware(kVersion, 8192)))
          .Build();
  for (int tries = 0; tries < 3 && result != 1; ++tries) {
    {
      Library library;
      if (tries == 0) PathOf(library, *mouse);
      downloading = false;
      result = 0;
      const UpgradeCallback callback = [](const uint8_t* event, uint32_t) -> int {
        if (event[1] == 3 && event[2] == 1) downloading = true;
        if (event[1] == 2) result = event[2];
        return 0;
      };
      ASSERT_TRUE(library.Get<bool(const uint8_t*, UpgradeCallback, uint32_t)>("UsbUpgrade_Start")(
          file.data(), callback, 10'000));
      while (!downloading && result == 0)
        std::this_thread::sleep_for(Milliseconds(1));
    }
    while (result == 0)
      std::this_thread::sleep_for(Milliseconds(10));
    std::this_thread::sleep_for(Milliseconds(500));
  }
  const auto lock = mouse->Lock();
  EXPECT_EQ(mouse->firmware().options().version, kVersion);
}

// For a host that must know: the export that runs the loop returns when the run has ended.
TEST(Unload, AHostCanWaitForTheEnd) {
  static std::atomic<int> calls{0};
  Library library;
  library.Get<void(const char*, const char*, ServerReportCallback)>("UsbServerC_Start")(
      "nowhere", "nowhere", [](const uint8_t*, uint32_t, const uint8_t*, uint32_t) { ++calls; });
  library.Get<void()>("UsbServer_Exit")();
  library.Get<void()>("UsbReaderWriterServer")();
  const auto start = std::chrono::steady_clock::now();
  library.Get<void()>("UsbReaderWriterServer")();
  EXPECT_LT(std::chrono::steady_clock::now() - start, Milliseconds(50));  // at its end already
  EXPECT_EQ(calls, 0);
}

#ifdef _WIN32
void Pump() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    DispatchMessageW(&message);
}

// One hidden window, however many starts. It outlives its stop until its thread pumps; nothing of
// it leads into the library.
TEST(Unload, RightAfterTheNoticesStop) {
  static int calls = 0;
  constexpr wchar_t kClass[] = L"usb hook msg window";
  for (const bool pumps_first : {false, true}) {
    calls = 0;
    HMODULE module = nullptr;
    HWND window = nullptr;
    {
      Library library;
      module = library.module;
      auto* const start = library.Get<void(UsbChangedCallback, int32_t)>("StartUsbChanged");
      start([](bool) { ++calls; }, 0);
      start([](bool) { ++calls; }, 0);
      window = FindWindowW(kClass, nullptr);
      EXPECT_EQ(FindWindowExW(nullptr, window, kClass, nullptr), nullptr);
      EXPECT_FALSE(IsWindowVisible(window));
      EXPECT_EQ(GetWindowThreadProcessId(window, nullptr), GetCurrentThreadId());
      EXPECT_EQ(GetWindowLongPtrW(window, GWL_STYLE) & WS_OVERLAPPEDWINDOW, WS_OVERLAPPEDWINDOW);
      library.Get<void()>("StopUsbChanged")();
      EXPECT_TRUE(IsWindow(window));
      if (pumps_first) Pump();
    }
    EXPECT_EQ(GetModuleHandleA(PERILINK_LIBRARY), nullptr);
    SendMessageW(window, WM_DEVICECHANGE, 0x8000, 0);
    Pump();
    EXPECT_FALSE(IsWindow(window));
    EXPECT_EQ(calls, 2);
    // With the window still there the class has to stay; it leads to the system's own procedure.
    WNDCLASSW left;
    EXPECT_EQ(GetClassInfoW(module, kClass, &left) == FALSE, pumps_first);
  }
}
#endif

}  // namespace
}  // namespace perilink
