// Calls that are made to fail.
#include <gtest/gtest.h>

#include "perilink_platform/win32.h"
#include "perilink_platform/world.h"

namespace perilink::platform {
namespace {

// Each is good without a fault. Their failure values differ.
struct Call {
  const char* name;
  bool (*succeeds)(HANDLE event);
} constexpr kCalls[] = {
    {"CreateEventW", [](HANDLE) { return CloseHandle(CreateEventW(nullptr, 1, 0, nullptr)) != 0; }},
    {"WaitForSingleObject", [](HANDLE event) { return WaitForSingleObject(event, 0) == 0; }},
    {"SetEvent", [](HANDLE event) { return SetEvent(event) != FALSE; }},
    {"SysAllocString",
     [](HANDLE) {
       const BSTR text = SysAllocString(L"text");
       SysFreeString(text);
       return text != nullptr;
     }},
};

class Fault : public testing::Test {
 protected:
  const HANDLE event_ = CreateEventW(nullptr, TRUE, TRUE, nullptr);
};

TEST_F(Fault, FailsTheNthCallOfAName) {
  for (const Call& call : kCalls) {
    SCOPED_TRACE(call.name);
    for (const bool for_ever : {false, true}) {
      ArmFault(call.name, 2, for_ever, ERROR_NOT_ENOUGH_MEMORY);
      EXPECT_TRUE(call.succeeds(event_));
      EXPECT_FALSE(call.succeeds(event_));
      EXPECT_EQ(call.succeeds(event_), !for_ever);
      EXPECT_EQ(PlatformCallCount(), 3u);
      DisarmFault();
      EXPECT_TRUE(call.succeeds(event_));
    }
  }
}

TEST_F(Fault, GivesItsErrorAndCountsAnyCall) {
  ArmFault("*", 2);
  EXPECT_TRUE(SetEvent(event_));
  GetTickCount64();  // can't fail: not counted
  EXPECT_EQ(CreateFileW(L"x", 0, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_NO_SYSTEM_RESOURCES);
  DisarmFault();
}

}  // namespace
}  // namespace perilink::platform
