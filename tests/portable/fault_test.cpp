// Calls that are made to fail.
#include <gtest/gtest.h>

#include "perilink_platform/win32.h"
#include "perilink_platform/world.h"

namespace perilink::platform {
namespace {

HANDLE TheEvent() {
  static const HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
  return event;
}

// Each is good without a fault. Their failure values differ.
struct Call {
  const char* name;
  bool (*succeeds)();
} constexpr kCalls[] = {
    {"CreateEventW", [] { return CloseHandle(CreateEventW(nullptr, 1, 0, nullptr)) != FALSE; }},
    {"WaitForSingleObject", [] { return WaitForSingleObject(TheEvent(), 0) != WAIT_FAILED; }},
    {"SetEvent", [] { return SetEvent(TheEvent()) != FALSE; }},
    {"SysAllocString",
     [] {
       const BSTR text = SysAllocString(L"text");
       SysFreeString(text);
       return text != nullptr;
     }},
};

TEST(Fault, FailsTheNthCallOfAName) {
  TheEvent();
  for (const Call& call : kCalls) {
    ArmFault(call.name, 2, false, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_TRUE(call.succeeds()) << call.name;
    EXPECT_FALSE(call.succeeds()) << call.name;
    EXPECT_TRUE(call.succeeds()) << call.name;
    EXPECT_EQ(PlatformCallCount(), 3u) << call.name;
    ArmFault(call.name, 1, true);
    EXPECT_FALSE(call.succeeds()) << call.name;
    EXPECT_FALSE(call.succeeds()) << call.name;
    DisarmFault();
    EXPECT_TRUE(call.succeeds()) << call.name;
  }
}

TEST(Fault, GivesItsErrorAndCountsAnyCall) {
  TheEvent();
  ArmFault("*", 2);
  EXPECT_TRUE(SetEvent(TheEvent()));
  GetTickCount64();  // can't fail: not counted
  EXPECT_EQ(CreateFileW(L"x", 0, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_NO_SYSTEM_RESOURCES);
  DisarmFault();
}

}  // namespace
}  // namespace perilink::platform
