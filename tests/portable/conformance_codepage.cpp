// Narrow and wide text. Only ASCII is the same in every ANSI code page; the rest is tried in UTF-8.
#include <gtest/gtest.h>

#include <string>

#include "platform/win32.h"

namespace {

TEST(CodePage, AsksThenConvertsWhatFits) {
  const char text[] = "vid_1234";
  WCHAR wide[9];
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0), 9);
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, wide, 9), 9);
  EXPECT_STREQ(wide, L"vid_1234");
  char narrow[9];
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, wide, -1, nullptr, 0, nullptr, nullptr), 9);
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, wide, -1, narrow, 9, nullptr, nullptr), 9);
  EXPECT_STREQ(narrow, text);
  // Explicit lengths add no zero.
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, text, 3, nullptr, 0), 3);
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, wide, 3, narrow, 3, nullptr, nullptr), 3);
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, wide, 8), 0);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
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

}  // namespace
