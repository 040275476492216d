#include "platform/alarm.h"

#include <algorithm>
#include <array>

#include "platform/runtime.h"

namespace perilink {
namespace {

constexpr int64_t kMicrosPerMs = 1000;
// A longer wait is made of several.
constexpr int64_t kLongestWaitMs = 60'000;

}  // namespace

Alarm::Alarm()
    : woken_(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      timer_(CreateWaitableTimerExW(nullptr, nullptr, CREATE_WAITABLE_TIMER_HIGH_RESOLUTION,
                                    TIMER_ALL_ACCESS)) {}

bool Alarm::SetTimer(int64_t micros) const {
  if (!timer_.Valid()) return false;
  constexpr int64_t kTimerUnitsPerMicro = 10;
  LARGE_INTEGER due;
  due.QuadPart = -micros * kTimerUnitsPerMicro;  // negative: from now
  return SetWaitableTimer(timer_.Get(), &due, 0, nullptr, nullptr, FALSE) != FALSE;
}

Alarm::Cause Alarm::Wait(HANDLE object, Deadline deadline) {
  for (;;) {
    const int64_t left = std::max<int64_t>(deadline.at_micros - MonotonicMicros(), 0);
    std::array<HANDLE, 3> handles;
    std::array<Cause, 3> causes;
    DWORD count = 0;
    const auto add = [&](HANDLE handle, Cause cause) {
      handles[count] = handle;
      causes[count++] = cause;
    };
    if (IsValidHandle(object)) add(object, Cause::kSignalled);
    if (woken_.Valid()) add(woken_.Get(), Cause::kWoken);

    const int64_t whole_ms = (left + kMicrosPerMs - 1) / kMicrosPerMs;
    auto wait_ms = static_cast<DWORD>(std::min(whole_ms, kLongestWaitMs));
    if (deadline.precise && left > 0) {
      if (SetTimer(left)) {
        add(timer_.Get(), Cause::kTime);
      } else {
        wait_ms = 0;
      }
    }
    if (count == 0) {
      Sleep(wait_ms);
    } else {
      const DWORD ended = WaitForMultipleObjects(count, handles.data(), FALSE, wait_ms);
      if (ended < WAIT_OBJECT_0 + count && causes[ended - WAIT_OBJECT_0] != Cause::kTime)
        return causes[ended - WAIT_OBJECT_0];
      // Not to spin on a handle that can't be waited for.
      if (ended == WAIT_FAILED) Sleep(std::max<DWORD>(wait_ms, 1));
    }
    if (MonotonicMicros() >= deadline.at_micros) return Cause::kTime;
  }
}

}  // namespace perilink
