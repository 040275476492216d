#include "perilink_platform/handle.h"

#include <algorithm>
#include <array>
#include <new>
#include <span>

#include "call.h"
#include "scheduler.h"
#include "waitable.h"

using perilink::platform::CallMustFail;
using perilink::platform::EnterCall;
using perilink::platform::Event;
using perilink::platform::Fail;
using perilink::platform::HandleTable;
using perilink::platform::InjectedError;
using perilink::platform::Scheduler;
using perilink::platform::Thread;
using perilink::platform::ThreadObject;
using perilink::platform::Waitable;
using perilink::platform::WaitableTimer;
using perilink::platform::WaitForAny;

namespace perilink::platform {
namespace {

uint64_t ToMicros(DWORD milliseconds) {
  return milliseconds == INFINITE ? kForever : uint64_t{milliseconds} * 1000;
}

}  // namespace

size_t WaitForAny(std::span<Waitable* const> objects, HANDLE handle, DWORD milliseconds) {
  Scheduler& scheduler = Scheduler::Get();
  std::array<Signal*, MAXIMUM_WAIT_OBJECTS> signals;
  std::ranges::transform(objects, signals.begin(),
                         [](Waitable* object) { return &object->WaitSignal(); });
  const uint64_t timeout = ToMicros(milliseconds);
  const uint64_t start = scheduler.Now();
  for (;;) {
    const uint64_t now = scheduler.Now();
    uint64_t left = timeout == kForever ? kForever : timeout - std::min(timeout, now - start);
    for (Waitable* const object : objects) {
      const uint64_t due_at = object->DueAt();
      if (due_at <= now) {
        static_cast<WaitableTimer*>(object)->Ring();
      } else if (due_at != kForever) {
        left = std::min(left, due_at - now);
      }
    }
    const size_t taken =
        scheduler.WaitAny(std::span(signals).first(objects.size()), left,
                          {objects.front()->Kind(), reinterpret_cast<uintptr_t>(handle)});
    if (taken != Scheduler::kNone || left == 0 || scheduler.Now() - start >= timeout) return taken;
  }
}

}  // namespace perilink::platform

BOOL CloseHandle(HANDLE handle) {
  const DWORD injected = InjectedError("CloseHandle");
  if (!HandleTable::Get().Close<Waitable>(handle)) return Fail(ERROR_INVALID_HANDLE, FALSE);
  return injected == 0 ? TRUE : Fail(injected, FALSE);
}

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manual_reset, BOOL initial_state,
                    LPCWSTR name) try {
  if (CallMustFail("CreateEventW")) return nullptr;
  if (attributes != nullptr || name != nullptr) return Fail(ERROR_INVALID_PARAMETER, HANDLE{});
  return HandleTable::Get().Add(
      std::make_shared<Event>(manual_reset != FALSE, initial_state != FALSE));
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY, HANDLE{});
}

BOOL SetEvent(HANDLE event) {
  if (CallMustFail("SetEvent")) return FALSE;
  const auto object = HandleTable::Get().Find<Event>(event);
  if (object == nullptr) return Fail(ERROR_INVALID_HANDLE, FALSE);
  Scheduler::Get().Set(object->WaitSignal());
  return TRUE;
}

BOOL ResetEvent(HANDLE event) {
  if (CallMustFail("ResetEvent")) return FALSE;
  const auto object = HandleTable::Get().Find<Event>(event);
  if (object == nullptr) return Fail(ERROR_INVALID_HANDLE, FALSE);
  Scheduler::Get().Reset(object->WaitSignal());
  return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  if (CallMustFail("WaitForSingleObject")) return WAIT_FAILED;
  const auto object = HandleTable::Get().Find<Waitable>(handle);
  if (object == nullptr) return Fail(ERROR_INVALID_HANDLE, WAIT_FAILED);
  Waitable* const objects[] = {object.get()};
  return WaitForAny(objects, handle, milliseconds) == 0 ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all,
                             DWORD milliseconds) {
  if (CallMustFail("WaitForMultipleObjects")) return WAIT_FAILED;
  if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || wait_all)
    return Fail(ERROR_INVALID_PARAMETER, WAIT_FAILED);
  std::array<std::shared_ptr<Waitable>, MAXIMUM_WAIT_OBJECTS> held;
  std::array<Waitable*, MAXIMUM_WAIT_OBJECTS> objects;
  for (DWORD i = 0; i < count; ++i) {
    held[i] = HandleTable::Get().Find<Waitable>(handles[i]);
    if (held[i] == nullptr) return Fail(ERROR_INVALID_HANDLE, WAIT_FAILED);
    objects[i] = held[i].get();
  }
  const size_t taken = WaitForAny(std::span(objects).first(count), handles[0], milliseconds);
  return taken == Scheduler::kNone ? WAIT_TIMEOUT : WAIT_OBJECT_0 + static_cast<DWORD>(taken);
}

HANDLE CreateWaitableTimerExW(LPSECURITY_ATTRIBUTES attributes, LPCWSTR name, DWORD flags,
                              DWORD access) try {
  if (CallMustFail("CreateWaitableTimerExW")) return nullptr;
  constexpr DWORD kFlags =
      CREATE_WAITABLE_TIMER_MANUAL_RESET | CREATE_WAITABLE_TIMER_HIGH_RESOLUTION;
  if (attributes != nullptr || name != nullptr || (flags & ~kFlags) != 0 ||
      access != TIMER_ALL_ACCESS)
    return Fail(ERROR_INVALID_PARAMETER, HANDLE{});
  return HandleTable::Get().Add(
      std::make_shared<WaitableTimer>((flags & CREATE_WAITABLE_TIMER_MANUAL_RESET) != 0));
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY, HANDLE{});
}

BOOL SetWaitableTimer(HANDLE timer, const LARGE_INTEGER* due_time, LONG period,
                      PTIMERAPCROUTINE routine, LPVOID argument, BOOL resume) {
  if (CallMustFail("SetWaitableTimer")) return FALSE;
  if (due_time->QuadPart > 0 || period != 0 || routine != nullptr || argument != nullptr || resume)
    return Fail(ERROR_INVALID_PARAMETER, FALSE);
  const auto object = HandleTable::Get().Find<WaitableTimer>(timer);
  if (object == nullptr) return Fail(ERROR_INVALID_HANDLE, FALSE);
  constexpr LONGLONG kTicksPerMicro = 10;
  const LONGLONG micros = (-due_time->QuadPart + kTicksPerMicro - 1) / kTicksPerMicro;
  object->Set(Scheduler::Get().Now() + static_cast<uint64_t>(micros));
  return TRUE;
}

HANDLE CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack_size,
                    LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags,
                    LPDWORD thread_id) try {
  if (CallMustFail("CreateThread")) return nullptr;
  if (attributes != nullptr || start == nullptr || flags != 0)
    return Fail(ERROR_INVALID_PARAMETER, HANDLE{});
  const std::shared_ptr<Thread> thread = Scheduler::Get().MakeThread();
  const HANDLE handle = HandleTable::Get().Add(std::make_shared<ThreadObject>(thread));
  if (!Scheduler::Get().StartThread(thread, stack_size, start, parameter)) {
    HandleTable::Get().Close<ThreadObject>(handle);
    return Fail(ERROR_NOT_ENOUGH_MEMORY, HANDLE{});
  }
  if (thread_id != nullptr) *thread_id = thread->id;
  return handle;
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY, HANDLE{});
}

DWORD GetCurrentThreadId() {
  return Scheduler::Get().Current("GetCurrentThreadId").id;
}

void Sleep(DWORD milliseconds) {
  EnterCall("Sleep");
  Scheduler::Get().SleepFor(perilink::platform::ToMicros(milliseconds));
}
