// Hidden windows and their messages.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "platform/handles.h"

namespace perilink {
namespace {

constexpr WCHAR kClass[] = L"perilink conformance window";
constexpr UINT kQuestion = WM_USER + 1;
constexpr UINT kQuit = WM_USER + 2;

// The messages that the tests are about, in the order in which the window procedure got them.
std::vector<UINT>& Seen() {
  static std::vector<UINT> seen;
  return seen;
}

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  constexpr UINT kOfInterest[] = {WM_NCCREATE, WM_CREATE,    WM_CLOSE,
                                  WM_DESTROY,  WM_NCDESTROY, kQuestion};
  if (std::ranges::count(kOfInterest, message) != 0) Seen().push_back(message);
  if (message == kQuestion) return static_cast<LRESULT>(wparam) + lparam;
  if (message == kQuit) {
    PostQuitMessage(static_cast<int>(wparam));
    PostMessageW(window, kQuestion, 1, 1);
    return 0;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

HWND CreateTestWindow() {
  WNDCLASSW window_class{};
  window_class.lpfnWndProc = Procedure;
  window_class.hInstance = GetModuleHandleW(nullptr);
  window_class.lpszClassName = kClass;
  RegisterClassW(&window_class);
  Seen().clear();
  return CreateWindowExW(0, kClass, L"", WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, CW_USEDEFAULT,
                         CW_USEDEFAULT, CW_USEDEFAULT, nullptr, nullptr, GetModuleHandleW(nullptr),
                         nullptr);
}

TEST(Windows, APostedCloseDestroysWhenItsThreadPumps) {
  const HWND window = CreateTestWindow();
  ASSERT_NE(window, nullptr);
  EXPECT_EQ(Seen(), (std::vector<UINT>{WM_NCCREATE, WM_CREATE}));
  EXPECT_TRUE(PostMessageW(window, WM_CLOSE, 0, 0));
  EXPECT_TRUE(IsWindow(window));
  Seen().clear();
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    DispatchMessageW(&message);
  EXPECT_EQ(Seen(), (std::vector<UINT>{WM_CLOSE, WM_DESTROY, WM_NCDESTROY}));
  EXPECT_FALSE(IsWindow(window));
  EXPECT_FALSE(PostMessageW(window, WM_CLOSE, 0, 0));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_WINDOW_HANDLE});
}

struct Asker {
  HWND window;
  LRESULT answer;
};

DWORD WINAPI Ask(LPVOID parameter) {
  Asker& asker = *static_cast<Asker*>(parameter);
  EXPECT_FALSE(DestroyWindow(asker.window));  // another thread's
  asker.answer = SendMessageW(asker.window, kQuestion, 40, 2);
  PostMessageW(asker.window, kQuit, 7, 0);
  return 0;
}

TEST(Windows, ASentMessageIsAnsweredByTheLoopWhichEndsAfterWhatWasPosted) {
  const HWND window = CreateTestWindow();
  ASSERT_NE(window, nullptr);
  EXPECT_EQ(SendMessageW(window, kQuestion, 1, 2), 3);
  Asker asker{window, 0};
  const UniqueEvent thread(CreateThread(nullptr, 0, Ask, &asker, 0, nullptr));
  EXPECT_EQ(WaitForSingleObject(thread.Get(), 50), DWORD{WAIT_TIMEOUT});
  EXPECT_EQ(asker.answer, 0);
  Seen().clear();
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0)
    DispatchMessageW(&message);
  EXPECT_EQ(message.message, UINT{WM_QUIT});
  EXPECT_EQ(message.wParam, 7u);
  EXPECT_EQ(Seen(), (std::vector<UINT>{kQuestion, kQuestion}));
  EXPECT_EQ(WaitForSingleObject(thread.Get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(asker.answer, 42);
  EXPECT_TRUE(DestroyWindow(window));
}

}  // namespace
}  // namespace perilink
