// Narrow and wide text. Only ASCII is the same in every ANSI code page; the rest is tried in UTF-8.
#include <gtest/gtest.h>

#include <string>

#include "platform/win32.h"

namespace {

std::wstring Widen(const std::string& text) {
  WCHAR buffer[32];
  const int count =
      MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), buffer, 32);
  return std::wstring(buffer, static_cast<size_t>(count));
}

TEST(CodePage, AsksThenConverts) {
  const char text[] = "vid_1234";
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0), 9);
  WCHAR wide[9];
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, wide, 9), 9);
  EXPECT_STREQ(wide, L"vid_1234");
  char narrow[9];
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, wide, -1, nullptr, 0, nullptr, nullptr), 9);
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, wide, -1, narrow, 9, nullptr, nullptr), 9);
  EXPECT_STREQ(narrow, text);
  // Explicit lengths add no zero.
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, text, 3, nullptr, 0), 3);
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, wide, 3, narrow, 3, nullptr, nullptr), 3);
}

TEST(CodePage, RefusesWhatDoesNotFit) {
  WCHAR wide[4];
  char narrow[4];
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abcd", -1, wide, 4), 0);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"abcd", -1, narrow, 4, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abcd", 0, wide, 4), 0);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, nullptr, 4, wide, 4), 0);
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, nullptr, 4, narrow, 4, nullptr, nullptr), 0);
}

TEST(CodePage, PutsReplacementsForBadUtf8) {
  EXPECT_EQ(Widen("gr\xC3\xBC\xC3\x9F \xE2\x82\xAC"), L"gr\u00FC\u00DF \u20AC");
  EXPECT_EQ(Widen("a\xFFz"), L"a\uFFFDz");
  EXPECT_EQ(Widen("a\xC3"), L"a\uFFFD");          // cut
  EXPECT_EQ(Widen("\xC0\xAF"), L"\uFFFD\uFFFD");  // overlong
  EXPECT_EQ(Widen("\xE2\x82z"), L"\uFFFDz");      // the longest part that could begin one
  const WCHAR lone_surrogate[] = {L'a', static_cast<WCHAR>(0xD800), L'z'};
  char narrow[8];
  const int count = WideCharToMultiByte(CP_UTF8, 0, lone_surrogate, 3, narrow, 8, nullptr, nullptr);
  EXPECT_EQ(std::string(narrow, static_cast<size_t>(count)), "a\xEF\xBF\xBDz");
}

}  // namespace
