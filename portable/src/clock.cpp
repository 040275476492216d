// The world's clocks: what world.h and the runtime say of time, and the system's own time calls.
#include <chrono>
#include <ctime>

#include "active_bus.h"
#include "call.h"
#include "perilink_platform/handle.h"
#include "perilink_platform/runtime.h"
#include "perilink_platform/world.h"
#include "scheduler.h"

namespace perilink::platform {
namespace {

// 2025-01-07 09:03:05 UTC
constexpr int64_t kVirtualCalendarStart = 1'736'240'585;

// Virtual time: calendar time less monotonic time. Written by the baton's holder only.
std::atomic<int64_t> calendar_offset_micros{0};

// What a clock read costs in virtual time.
constexpr uint64_t kClockReadMicros = 3;

int64_t CalendarMicros() {
  if (IsVirtual()) return static_cast<int64_t>(NowMicros()) + calendar_offset_micros;
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// A read of a clock by the library; in virtual time it takes kClockReadMicros.
void ReadClock(const char* function) {
  EnterCall(function);
  Scheduler::Get().Spend(kClockReadMicros);
}

}  // namespace

void StartVirtual(uint64_t seed) {
  if (MachineBusRuns()) StopProcess("StartVirtual must come before the machine's devices are used");
  Scheduler::Get().StartVirtual(seed);
  SetCalendarTime(kVirtualCalendarStart);
}

bool IsVirtual() {
  return Scheduler::Get().IsVirtual();
}
uint64_t NowMicros() {
  return Scheduler::Get().Now();
}

void SetCalendarTime(int64_t unix_seconds) {
  if (!IsVirtual()) StopProcess("SetCalendarTime needs virtual time");
  calendar_offset_micros = unix_seconds * 1'000'000 - static_cast<int64_t>(NowMicros());
}

EventId Schedule(uint64_t at_micros, std::function<void()> action) {
  return Scheduler::Get().Schedule(at_micros, std::move(action));
}

void Cancel(EventId id) {
  Scheduler::Get().Cancel(id);
}

uint64_t KnownThreadCount() {
  return Scheduler::Get().ThreadCount();
}

int64_t MonotonicMicros() {
  ReadClock("MonotonicMicros");
  return static_cast<int64_t>(NowMicros());
}

int64_t CalendarTime() {
  ReadClock("CalendarTime");
  return CalendarMicros() / 1'000'000;
}

}  // namespace perilink::platform

ULONGLONG GetTickCount64() {
  perilink::platform::ReadClock("GetTickCount64");
  return perilink::platform::NowMicros() / 1000;
}

void GetLocalTime(LPSYSTEMTIME time) {
  perilink::platform::ReadClock("GetLocalTime");
  const int64_t micros = perilink::platform::CalendarMicros();
  const std::time_t seconds = micros / 1'000'000;
  std::tm broken{};
  if (perilink::platform::IsVirtual()) {
    gmtime_r(&seconds, &broken);
  } else {
    localtime_r(&seconds, &broken);
  }
  time->wYear = static_cast<WORD>(broken.tm_year + 1900);
  time->wMonth = static_cast<WORD>(broken.tm_mon + 1);
  time->wDayOfWeek = static_cast<WORD>(broken.tm_wday);
  time->wDay = static_cast<WORD>(broken.tm_mday);
  time->wHour = static_cast<WORD>(broken.tm_hour);
  time->wMinute = static_cast<WORD>(broken.tm_min);
  time->wSecond = static_cast<WORD>(broken.tm_sec);
  time->wMilliseconds = static_cast<WORD>(micros / 1000 % 1000);
}
