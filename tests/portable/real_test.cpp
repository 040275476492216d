// Real threads and time: what ThreadSanitizer watches.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "perilink_platform/win32.h"
#include "support/scripted_device.h"

namespace perilink {
namespace {

using testing::Report;
using testing::ScriptedDevice;

TEST(Real, ExchangesWhileThreadsComeAndGo) {
  ScriptedDevice device(testing::kScriptedPath, [](ScriptedDevice& self, const Report& written) {
    self.Deliver(written, written[1] % 2);  // at once, or a millisecond later
    return DWORD{0};
  });
  std::atomic<int> answered{0};
  const auto exchange = [&answered] {
    for (uint8_t i = 0; i < 20; ++i) {
      const HANDLE file = CreateFileW(testing::kScriptedPath, GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_OVERLAPPED, nullptr);
      OVERLAPPED read{};
      read.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
      OVERLAPPED write{};
      uint8_t buffer[17];
      const uint8_t report[17] = {8, i};
      DWORD bytes = 0;
      ReadFile(file, buffer, 17, nullptr, &read);
      WriteFile(file, report, 17, nullptr, &write);
      if (WaitForSingleObject(read.hEvent, 1000) == WAIT_OBJECT_0) ++answered;
      if (i % 4 == 0) {
        ResetEvent(read.hEvent);
        ReadFile(file, buffer, 17, nullptr, &read);
        CancelIo(file);
        GetOverlappedResult(file, &read, &bytes, TRUE);
      }
      CloseHandle(file);
      CloseHandle(read.hEvent);
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i)
    threads.emplace_back(exchange);
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(answered, 60);
  EXPECT_EQ(platform::OpenHandleCount(), 0u);
}

DWORD Pump(void* window) {
  WNDCLASSW window_class{};
  window_class.lpfnWndProc = DefWindowProcW;
  window_class.lpszClassName = L"real";
  RegisterClassW(&window_class);
  static_cast<std::atomic<HWND>*>(window)->store(
      CreateWindowExW(0, L"real", L"", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr));
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0 && message.message != WM_USER)
    DispatchMessageW(&message);
  return 0;
}

TEST(Real, MessagesAndWaitsCrossThreads) {
  std::atomic<HWND> window{nullptr};
  const HANDLE thread = CreateThread(nullptr, 0, Pump, &window, 0, nullptr);
  while (window.load() == nullptr)
    Sleep(0);
  EXPECT_EQ(SendMessageW(window, WM_DEVICECHANGE, 0, 0), TRUE);
  EXPECT_TRUE(PostMessageW(window, WM_USER, 0, 0));
  EXPECT_EQ(WaitForSingleObject(thread, 10'000), WAIT_OBJECT_0);
  EXPECT_FALSE(IsWindow(window));
  CloseHandle(thread);
}

}  // namespace
}  // namespace perilink
