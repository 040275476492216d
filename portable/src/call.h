// What every call of the platform begins with, and how it fails.
//
// No exception leaves a call. One that needs memory is a function-try-block, whose handler fails
// with ERROR_NOT_ENOUGH_MEMORY.
#ifndef PERILINK_PLATFORM_SRC_CALL_H_
#define PERILINK_PLATFORM_SRC_CALL_H_

#include "perilink_platform/error.h"

namespace perilink::platform {

// The calling thread is one that the world knows, or the process stops.
void EnterCall(const char* function);

// The same for a call that can fail: the error that it must fail with because a fault is armed, or
// 0.
DWORD InjectedError(const char* function);

// The same; stores the error as the last error.
bool CallMustFail(const char* function);

// Sets the last error and gives `result`.
template <typename Result>
Result Fail(DWORD error, Result result) {
  SetLastError(error);
  return result;
}

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_CALL_H_
