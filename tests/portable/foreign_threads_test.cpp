// Threads that the platform has not made: when they end, nothing of them stays.
#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "perilink_platform/win32.h"
#include "perilink_platform/world.h"
#include "sim/scripted_device.h"

namespace perilink::platform {
namespace {

// Calls the platform when the thread-local objects of its thread go.
struct LateCaller {
  ~LateCaller() { Sleep(1); }
  bool used = false;
};
thread_local LateCaller late_caller;

uint64_t CountWithThisThread() {
  GetCurrentThreadId();
  return KnownThreadCount();
}

TEST(ForeignThreads, LeaveNoRecordBehind) {
  const uint64_t before = CountWithThisThread();
  for (int i = 0; i < 10'000; ++i) {
    std::thread([&] {
      const HANDLE event = CreateEventW(nullptr, FALSE, TRUE, nullptr);
      WaitForSingleObject(event, INFINITE);
      CloseHandle(event);
      EXPECT_EQ(KnownThreadCount(), before + (GetCurrentThreadId() != 0));
    }).join();
  }
  EXPECT_EQ(KnownThreadCount(), before);
}

// As a thread's of the platform's.
TEST(ForeignThreads, TakeTheirWindowsAndReadsAlong) {
  struct Left {
    OVERLAPPED overlapped{};
    std::array<BYTE, 17> report{};
    HANDLE file = nullptr;
    HWND window = nullptr;
  };
  const auto leave = [](LPVOID parameter) -> DWORD {
    Left& left = *static_cast<Left*>(parameter);
    late_caller.used = true;
    ReadFile(left.file, left.report.data(), 17, nullptr, &left.overlapped);
    left.window =
        CreateWindowExW(0, L"Left", L"", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, left.file);
    return IsWindow(left.window) ? 0 : 1;
  };
  const sim::ScriptedDevice device;
  WNDCLASSW window_class{};
  window_class.lpfnWndProc = DefWindowProcW;
  window_class.lpszClassName = L"Left";
  ASSERT_NE(RegisterClassW(&window_class), 0);
  const uint64_t before = CountWithThisThread();
  for (const bool foreign : {true, false}) {
    Left left;
    left.file = CreateFileW(sim::kScriptedPath, GENERIC_READ, FILE_SHARE_READ, nullptr,
                            OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    if (foreign) {
      std::thread([&] { EXPECT_EQ(leave(&left), 0u); }).join();
      EXPECT_EQ(KnownThreadCount(), before);
    } else {
      WaitForSingleObject(CreateThread(nullptr, 0, leave, &left, 0, nullptr), INFINITE);
    }
    EXPECT_NE(left.window, nullptr);
    EXPECT_FALSE(IsWindow(left.window));
    DWORD bytes = 0;
    EXPECT_FALSE(GetOverlappedResult(left.file, &left.overlapped, &bytes, TRUE));
    EXPECT_EQ(GetLastError(), ERROR_OPERATION_ABORTED);
    CloseHandle(left.file);
  }
}

}  // namespace
}  // namespace perilink::platform
