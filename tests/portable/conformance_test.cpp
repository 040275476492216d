// The calls that the portable platform implements, against it and against the system's own:
// code page, OLE strings and arrays, registry, events, hidden windows.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "platform/handles.h"
#include "platform/win32.h"

namespace perilink {
namespace {

// A length of -1 counts the terminating zero; another one adds none.
TEST(CodePage, AsksThenConvertsWhatFits) {
  for (const int length : {-1, 8}) {
    const int count = length < 0 ? 9 : 8;
    WCHAR wide[9] = {};
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "vid_1234", length, nullptr, 0), count);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "vid_1234", length, wide, 9), count);
    EXPECT_STREQ(wide, L"vid_1234");
    char narrow[9] = {};
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, wide, length, nullptr, 0, nullptr, nullptr), count);
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, wide, length, narrow, 9, nullptr, nullptr), count);
    EXPECT_STREQ(narrow, "vid_1234");
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "vid_1234", length, wide, count - 1), 0);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
  }
}

TEST(CodePage, PutsReplacementsForBadUtf8) {
  const std::pair<std::string, std::wstring> cases[] = {
      {"gr\xC3\xBC\xC3\x9F \xE2\x82\xAC", L"gr\u00FC\u00DF \u20AC"},
      {"a\xFFz", L"a\uFFFDz"},
      {"a\xC3", L"a\uFFFD"},          // cut
      {"\xC0\xAF", L"\uFFFD\uFFFD"},  // overlong
      {"\xE2\x82z", L"\uFFFDz"},      // the longest part that could begin one
  };
  for (const auto& [text, expected] : cases) {
    WCHAR wide[32];
    const int count =
        MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide, 32);
    EXPECT_EQ(std::wstring(wide, static_cast<size_t>(count)), expected);
  }
}

TEST(OleStrings, KeepTheirLength) {
  const BSTR text = SysAllocStringLen(L"a\0b", 3);
  EXPECT_EQ(SysStringLen(text), 3u);
  EXPECT_EQ(text[2], L'b');
  EXPECT_EQ(text[3], L'\0');
  // The length in bytes stands before the text, where managed hosts look for it.
  uint32_t bytes = 0;
  std::memcpy(&bytes, reinterpret_cast<const char*>(text) - 4, 4);
  EXPECT_EQ(bytes, 3 * sizeof(WCHAR));
  SysFreeString(text);
  EXPECT_EQ(SysStringLen(nullptr), 0u);
}

TEST(OleArrays, HoldCopiesOfStrings) {
  SAFEARRAYBOUND bound{2, 0};
  SAFEARRAY* const array = SafeArrayCreate(VT_BSTR, 1, &bound);
  ASSERT_NE(array, nullptr);
  const BSTR text = SysAllocString(L"first");
  LONG index = 0;
  EXPECT_EQ(SafeArrayPutElement(array, &index, text), S_OK);
  EXPECT_EQ(SafeArrayPutElement(array, &index, text), S_OK);  // frees the one before it
  SysFreeString(text);
  BSTR copy = nullptr;
  EXPECT_EQ(SafeArrayGetElement(array, &index, &copy), S_OK);
  EXPECT_STREQ(copy, L"first");
  index = 2;
  EXPECT_EQ(SafeArrayPutElement(array, &index, nullptr), DISP_E_BADINDEX);
  void* data = nullptr;
  EXPECT_EQ(SafeArrayAccessData(array, &data), S_OK);
  EXPECT_NE(static_cast<BSTR*>(data)[0], copy);
  EXPECT_EQ(SysStringLen(static_cast<BSTR*>(data)[1]), 0u);
  EXPECT_EQ(SafeArrayDestroy(array), DISP_E_ARRAYISLOCKED);
  EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
  SysFreeString(copy);
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

// ---- The registry -------------------------------------------------------------------------------

constexpr WCHAR kKey[] = L"Software\\PerilinkConformance\\Key";

// As numbers that compare on every system.
DWORD Code(LSTATUS status) {
  return static_cast<DWORD>(status);
}

TEST(Registry, KeepsValuesAsTheyWereStored) {
  HKEY handle = nullptr;
  ASSERT_EQ(Code(RegCreateKeyW(HKEY_CURRENT_USER, kKey, &handle)), DWORD{ERROR_SUCCESS});
  const UniqueRegistryKey key(handle);
  // Stored without a terminating zero. None may follow it: Windows looks, and would store that too.
  const std::wstring followed = L"01736240585-85!";
  const std::wstring text = followed.substr(0, followed.size() - 1);
  const auto bytes = static_cast<DWORD>(text.size() * sizeof(WCHAR));
  EXPECT_EQ(Code(RegSetValueExW(handle, L"Text", 0, REG_SZ,
                                reinterpret_cast<const BYTE*>(followed.data()), bytes)),
            DWORD{ERROR_SUCCESS});

  ASSERT_EQ(Code(RegOpenKeyExW(HKEY_CURRENT_USER, L"SOFTWARE\\perilinkconformance\\KEY", 0,
                               KEY_READ, &handle)),
            DWORD{ERROR_SUCCESS});
  const UniqueRegistryKey reader(handle);
  DWORD type = 0;
  DWORD size = 0;
  EXPECT_EQ(Code(RegQueryValueExW(handle, L"None", nullptr, nullptr, nullptr, &size)),
            DWORD{ERROR_FILE_NOT_FOUND});
  std::wstring read(text.size(), L'?');
  size = bytes - 1;
  auto* const data = reinterpret_cast<BYTE*>(read.data());
  EXPECT_EQ(Code(RegQueryValueExW(handle, L"TEXT", nullptr, &type, data, &size)),
            DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, bytes);
  EXPECT_EQ(Code(RegQueryValueExW(handle, L"TEXT", nullptr, &type, data, &size)),
            DWORD{ERROR_SUCCESS});
  EXPECT_EQ(type, DWORD{REG_SZ});
  EXPECT_EQ(read, text);
}

TEST(Events, AnAutoResetEventReleasesOneWaiter) {
  const UniqueEvent event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  const auto pass = [](LPVOID it) -> DWORD { return WaitForSingleObject(it, INFINITE); };
  const UniqueEvent threads[] = {
      UniqueEvent(CreateThread(nullptr, 0, pass, event.Get(), 0, nullptr)),
      UniqueEvent(CreateThread(nullptr, 0, pass, event.Get(), 0, nullptr))};
  const HANDLE both[] = {threads[0].Get(), threads[1].Get()};
  EXPECT_EQ(WaitForMultipleObjects(2, both, FALSE, 30), DWORD{WAIT_TIMEOUT});  // both wait
  SetEvent(event.Get());
  const DWORD first = WaitForMultipleObjects(2, both, FALSE, INFINITE) - WAIT_OBJECT_0;
  ASSERT_LE(first, 1u);
  EXPECT_EQ(WaitForSingleObject(both[1 - first], 30), DWORD{WAIT_TIMEOUT});
  SetEvent(event.Get());
  EXPECT_EQ(WaitForSingleObject(both[1 - first], INFINITE), WAIT_OBJECT_0);
  SetEvent(event.Get());
  EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(event.Get(), 0), DWORD{WAIT_TIMEOUT});
}

// ---- Windows and their messages -----------------------------------------------------------------

constexpr WCHAR kClass[] = L"perilink conformance window";
constexpr UINT kQuestion = WM_USER + 1;
constexpr UINT kQuit = WM_USER + 2;

// The messages that the test is about, in the order in which the window procedure got them.
std::vector<UINT> seen;

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  constexpr UINT kOfInterest[] = {WM_NCCREATE, WM_CREATE,    WM_CLOSE,
                                  WM_DESTROY,  WM_NCDESTROY, kQuestion};
  if (std::ranges::count(kOfInterest, message) != 0) seen.push_back(message);
  if (message == kQuestion) return static_cast<LRESULT>(wparam) + lparam;
  if (message == kQuit) {
    PostQuitMessage(static_cast<int>(wparam));
    PostMessageW(window, kQuestion, 1, 1);
    return 0;
  }
  return DefWindowProcW(window, message, wparam, lparam);
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

// From its creation to a posted close: what other threads send is answered by the loop, which ends
// after what was posted.
TEST(Windows, HearWhatIsSentAndPosted) {
  WNDCLASSW window_class{};
  window_class.lpfnWndProc = Procedure;
  window_class.hInstance = GetModuleHandleW(nullptr);
  window_class.lpszClassName = kClass;
  RegisterClassW(&window_class);
  const HWND window =
      CreateWindowExW(0, kClass, L"", WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, CW_USEDEFAULT,
                      CW_USEDEFAULT, CW_USEDEFAULT, nullptr, nullptr, nullptr, nullptr);
  ASSERT_NE(window, nullptr);
  EXPECT_EQ(SendMessageW(window, kQuestion, 1, 2), 3);
  Asker asker{window, 0};
  const UniqueEvent thread(CreateThread(nullptr, 0, Ask, &asker, 0, nullptr));
  EXPECT_EQ(WaitForSingleObject(thread.Get(), 50), DWORD{WAIT_TIMEOUT});
  EXPECT_EQ(asker.answer, 0);
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0)
    DispatchMessageW(&message);
  EXPECT_EQ(message.message, UINT{WM_QUIT});
  EXPECT_EQ(message.wParam, 7u);
  EXPECT_EQ(WaitForSingleObject(thread.Get(), INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(asker.answer, 42);
  EXPECT_TRUE(PostMessageW(window, WM_CLOSE, 0, 0));
  EXPECT_TRUE(IsWindow(window));
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    DispatchMessageW(&message);
  EXPECT_FALSE(IsWindow(window));
  EXPECT_FALSE(PostMessageW(window, WM_CLOSE, 0, 0));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_WINDOW_HANDLE});
  EXPECT_EQ(seen, (std::vector<UINT>{WM_NCCREATE, WM_CREATE, kQuestion, kQuestion, kQuestion,
                                     WM_CLOSE, WM_DESTROY, WM_NCDESTROY}));
}

}  // namespace
}  // namespace perilink
