// Calls for which there is no memory, or no thread. Runs in both worlds.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <functional>

#include "battery/registry_fixture.h"
#include "sim/scripted_device.h"
#include "support/failing_new.h"

namespace {

bool threads_lack = false;

}  // namespace

// A sanitizer that is linked into the program wants to know of each thread.
extern "C" [[gnu::weak]] decltype(pthread_create) __interceptor_pthread_create;

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*main)(void*), void* argument) {
  static const auto create =
      __interceptor_pthread_create != nullptr
          ? &__interceptor_pthread_create
          : reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  return threads_lack ? EAGAIN : create(thread, attributes, main, argument);
}

namespace perilink::platform {
namespace {

using testing::FailingNew;

DWORD WINAPI DoNothing(LPVOID) {
  return 0;
}

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  return message == WM_USER ? 7 : DefWindowProcW(window, message, wparam, lparam);
}

bool RegisterNext() {
  static wchar_t name[] = L"@";
  ++name[0];
  WNDCLASSW window_class{};
  window_class.lpfnWndProc = Procedure;
  window_class.lpszClassName = name;
  return RegisterClassW(&window_class) != 0;
}

class Shortage : public RegistryTest {
 protected:
  Shortage() {
    EXPECT_TRUE(RegisterNext());
    window = NewWindow();
    file = Open();
    EXPECT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, L"Shortage", &key), 0);
  }
  ~Shortage() override {
    CloseHandle(file);
    DestroyWindow(window);
  }

  static HWND NewWindow() {
    return CreateWindowExW(0, L"A", L"", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
  }
  static HANDLE Open() {
    return CreateFileW(sim::kScriptedPath, GENERIC_READ | GENERIC_WRITE,
                       FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
  }
  bool PostRead() {
    const bool posted = !ReadFile(file, report.data(), 17, nullptr, &overlapped) &&
                        GetLastError() == ERROR_IO_PENDING;
    EXPECT_EQ(overlapped.Internal == STATUS_PENDING, posted);
    return posted;
  }
  bool CancelRead() {
    DWORD bytes = 0;
    return CancelIo(file) && !GetOverlappedResult(file, &overlapped, &bytes, TRUE) &&
           GetLastError() == ERROR_OPERATION_ABORTED;
  }
  // The registry's calls return what others leave as the last error.
  static bool Done(LSTATUS status) {
    if (status != 0) SetLastError(static_cast<DWORD>(status));
    return status == 0;
  }

  sim::ScriptedDevice device;
  std::array<BYTE, 17> report{8};
  OVERLAPPED overlapped{};
  HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE file = nullptr;
  HANDLE made = nullptr;
  HWND window = nullptr;
  HKEY key = nullptr;
};

// With each allocation of a call failing in turn, the call fails as its documentation says.
TEST_F(Shortage, AFailedAllocationFailsTheCall) {
  GUID hid;
  HidD_GetHidGuid(&hid);
  const auto makes = [&](void* handle) {
    made = handle;
    return made != nullptr && made != INVALID_HANDLE_VALUE;
  };
  const auto close = [&] { CloseHandle(made); };
  const auto join_and_close = [&] { WaitForSingleObject(made, INFINITE), CloseHandle(made); };
  const auto close_key = [&] { RegCloseKey(static_cast<HKEY>(made)); };
  const auto below = reinterpret_cast<HKEY*>(&made);
  const DWORD present = DIGCF_PRESENT | DIGCF_DEVICEINTERFACE;
  const struct {
    const char* name;
    std::function<bool()> call;
    std::function<void()> undo = [] {};
  } kSwept[] = {
      {"event", [&] { return makes(CreateEventW(nullptr, 1, 0, nullptr)); }, close},
      {"timer",
       [&] { return makes(CreateWaitableTimerExW(nullptr, nullptr, 0, TIMER_ALL_ACCESS)); }, close},
      {"thread", [&] { return makes(CreateThread(nullptr, 0, DoNothing, nullptr, 0, nullptr)); },
       join_and_close},
      {"open", [&] { return makes(Open()); }, close},
      {"read", [&] { return PostRead(); }, [&] { EXPECT_TRUE(CancelRead()); }},
      {"write", [&] { return WriteFile(file, report.data(), 17, nullptr, &overlapped) != FALSE; }},
      {"feature", [&] { return HidD_SetFeature(file, report.data(), 17) != FALSE; }},
      {"list", [&] { return makes(SetupDiGetClassDevsW(&hid, nullptr, nullptr, present)); },
       [&] { SetupDiDestroyDeviceInfoList(made); }},
      {"class", RegisterNext},
      {"window", [&] { return makes(NewWindow()); }, [&] { DestroyWindow(HWND(made)); }},
      {"post", [&] { return PostMessageW(window, WM_USER, 0, 0) != FALSE; }},
      {"send", [&] { return SendMessageW(window, WM_USER, 0, 0) == 7; }},
      {"create key", [&] { return Done(RegCreateKeyW(key, L"Below", below)); }, close_key},
      {"open key", [&] { return Done(RegOpenKeyExW(key, L"Below", 0, KEY_READ, below)); },
       close_key},
      {"set value", [&] { return Done(RegSetValueExW(key, L"v", 0, 3, report.data(), 17)); }},
      {"query value",
       [&] { return Done(RegQueryValueExW(key, L"v", nullptr, nullptr, nullptr, nullptr)); }},
  };
  for (const auto& test : kSwept) {
    const uint64_t handles = OpenHandleCount();
    const uint64_t threads = KnownThreadCount();
    for (uint64_t nth = 1, count = nth; nth <= count; ++nth) {
      SCOPED_TRACE(::testing::Message() << test.name << ", allocation " << nth);
      SetLastError(0);
      FailingNew::ArmCall(nth);
      const bool done = test.call();
      count = FailingNew::DisarmCall().allocations;
      if (done) {
        test.undo();
      } else {
        EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
      }
      EXPECT_EQ(done, count < nth);
      EXPECT_GT(count, 0u);
      EXPECT_EQ(OpenHandleCount(), handles);
      EXPECT_EQ(KnownThreadCount(), threads);
    }
  }
}

// What ends, frees, wakes or waits needs none.
TEST_F(Shortage, WhatMustNotFailTakesNoMemory) {
  const struct {
    const char* name;
    std::function<bool()> call;
    std::function<void()> prepare = [] {};
  } kSwept[] = {
      {"cancel", [&] { return CancelRead(); }, [&] { PostRead(); }},
      {"close a file that is read", [&] { return CloseHandle(made) != FALSE; },
       [&] {
         made = Open();
         ReadFile(made, report.data(), 17, nullptr, &overlapped);
       }},
      {"destroy a window with messages", [&] { return DestroyWindow(HWND(made)) != FALSE; },
       [&] {
         made = NewWindow();
         PostMessageW(HWND(made), WM_USER, 0, 0);
       }},
      {"look for messages",
       [&] {
         MSG message;
         PostQuitMessage(3);
         return PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) && message.message == WM_QUIT;
       }},
      {"wait", [&] { return WaitForSingleObject(event, 1) == WAIT_TIMEOUT; }},
      {"wake", [&] { return SetEvent(event) && WaitForSingleObject(event, INFINITE) == 0; }},
      {"sleep", [&] { return Sleep(1), GetCurrentThreadId() != 0; }},
  };
  for (const auto& test : kSwept) {
    test.prepare();
    FailingNew::ArmCall(1, true);
    const bool done = test.call();
    FailingNew::DisarmCall();
    EXPECT_TRUE(done) << test.name;
  }
}

TEST_F(Shortage, AThreadThatCantBeMadeSpoilsNothing) {
  const auto start = [] { return CreateThread(nullptr, 0, DoNothing, nullptr, 0, nullptr); };
  const uint64_t handles = OpenHandleCount();
  PostRead();
  threads_lack = true;
  EXPECT_EQ(start(), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(OpenHandleCount(), handles);
  EXPECT_TRUE(CancelRead());  // in real time the first work for the thread that runs device events
  threads_lack = false;
  EXPECT_EQ(WaitForSingleObject(start(), 10'000), WAIT_OBJECT_0);
  ScheduleIn(0, [&] { SetEvent(event); });
  EXPECT_EQ(WaitForSingleObject(event, 10'000), WAIT_OBJECT_0);
}

TEST_F(Shortage, ALineOfBackslashesTakesMemoryInProportion) {
  for (const char* const part : {"\\\\", "a\\\\"}) {
    std::string text = "perilink registry 1\nkey \"";
    while (text.size() < 16'000)
      text += part;
    std::ofstream(folder_ / "registry.txt") << text << "a\"\nkey \"Shortage\\\\Beside\"\n";
    FailingNew::ArmCall(0);
    EXPECT_EQ(RegOpenKeyExW(key, L"Beside", 0, KEY_READ, reinterpret_cast<HKEY*>(&made)), 0);
    EXPECT_LT(FailingNew::DisarmCall().bytes, 64 * text.size());
  }
}

}  // namespace
}  // namespace perilink::platform
