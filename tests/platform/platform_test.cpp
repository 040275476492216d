#include <gtest/gtest.h>

#include "perilink_platform/world.h"
#include "platform/ansi_text.h"
#include "platform/handles.h"

namespace perilink {
namespace {

TEST(Handles, CloseOnceAndKeepTheLastError) {
  UniqueEvent event = CreateManualResetEvent();
  EXPECT_EQ(platform::OpenHandleCount(), 1u);
  UniqueEvent other(std::move(event));
  SetLastError(1234);
  other = UniqueEvent();
  EXPECT_EQ(GetLastError(), 1234u);
  EXPECT_EQ(platform::OpenHandleCount(), 0u);
  EXPECT_EQ(UniqueFile().Get(), INVALID_HANDLE_VALUE);
}

TEST(Text, GoesThroughTheCodePage) {
  const std::pair<std::string, std::wstring> texts[] = {{"", L""}, {"Größe 鼠", L"Größe 鼠"}};
  for (const auto& [narrow, wide] : texts) {
    EXPECT_EQ(NarrowToWide(narrow), wide);
    EXPECT_EQ(WideToNarrow(wide), narrow);
  }
  EXPECT_EQ(NarrowToWide(static_cast<const char*>(nullptr)), L"");
  EXPECT_EQ(NarrowToWide("a\xFFz"), L"a\xFFFDz");
  EXPECT_EQ(NarrowToWide(std::string_view("a\0z", 3)), std::wstring(L"a\0z", 3));
  // The system refuses: no text rather than half of one.
  for (const uint64_t nth : {1u, 2u}) {
    platform::ArmFault("MultiByteToWideChar", nth);
    EXPECT_EQ(NarrowToWide("mouse"), L"");
    platform::ArmFault("WideCharToMultiByte", nth);
    EXPECT_EQ(WideToNarrow(L"mouse"), "");
    platform::DisarmFault();
  }
}

}  // namespace
}  // namespace perilink
