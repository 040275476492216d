// The hidden window of the notice of USB devices, as Windows sees it.
#include <gtest/gtest.h>

#include "perilink/usb_changed.h"
#include "platform/win32.h"

namespace perilink {
namespace {

// The next window of the notice after `previous` that is this process's own: other tests run on the
// same desktop.
HWND NoticeWindow(HWND previous = nullptr) {
  HWND window = previous;
  DWORD process = 0;
  do {
    window = FindWindowExW(nullptr, window, L"usb hook msg window", L"");
    process = 0;
    if (window != nullptr) GetWindowThreadProcessId(window, &process);
  } while (window != nullptr && process != GetCurrentProcessId());
  return window;
}

TEST(Arrival, TheWindowIsHiddenAndOnlyOne) {
  EXPECT_EQ(NoticeWindow(), nullptr);
  StartUsbChanged(nullptr, 0);
  const HWND window = NoticeWindow();
  ASSERT_NE(window, nullptr);
  EXPECT_FALSE(IsWindowVisible(window));
  EXPECT_EQ(GetWindowThreadProcessId(window, nullptr), GetCurrentThreadId());
  EXPECT_EQ(GetWindowLongPtrW(window, GWL_STYLE) & WS_OVERLAPPEDWINDOW, WS_OVERLAPPEDWINDOW);
  StartUsbChanged(nullptr, 0);
  EXPECT_EQ(NoticeWindow(window), nullptr);
  StopUsbChanged();
  EXPECT_TRUE(IsWindow(window));  // until its thread pumps
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    DispatchMessageW(&message);
  EXPECT_EQ(NoticeWindow(), nullptr);
}

}  // namespace
}  // namespace perilink
