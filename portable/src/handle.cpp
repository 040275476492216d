#include "perilink_platform/handle.h"

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

namespace perilink::platform {
namespace {

uint64_t ToMicros(DWORD milliseconds) {
  return milliseconds == INFINITE ? kForever : uint64_t{milliseconds} * 1000;
}

}  // namespace

bool WaitFor(Waitable& object, HANDLE handle, DWORD milliseconds) {
  return Scheduler::Get().Wait(object.WaitSignal(), ToMicros(milliseconds),
                               {object.Kind(), reinterpret_cast<uintptr_t>(handle)});
}

}  // namespace perilink::platform

BOOL CloseHandle(HANDLE handle) {
  const DWORD injected = InjectedError("CloseHandle");
  if (!HandleTable::Get().Close<Waitable>(handle)) return Fail(ERROR_INVALID_HANDLE, FALSE);
  return injected == 0 ? TRUE : Fail(injected, FALSE);
}

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manual_reset, BOOL initial_state,
                    LPCWSTR name) {
  if (CallMustFail("CreateEventW")) return nullptr;
  if (attributes != nullptr || name != nullptr) return Fail(ERROR_INVALID_PARAMETER, HANDLE{});
  return HandleTable::Get().Add(
      std::make_shared<Event>(manual_reset != FALSE, initial_state != FALSE));
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
  return perilink::platform::WaitFor(*object, handle, milliseconds) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

HANDLE CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack_size,
                    LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags,
                    LPDWORD thread_id) {
  if (CallMustFail("CreateThread")) return nullptr;
  if (attributes != nullptr || start == nullptr || flags != 0)
    return Fail(ERROR_INVALID_PARAMETER, HANDLE{});
  const std::shared_ptr<Thread> thread =
      Scheduler::Get().StartThread(stack_size, [start, parameter] { start(parameter); });
  if (thread == nullptr) return Fail(ERROR_NOT_ENOUGH_MEMORY, HANDLE{});
  if (thread_id != nullptr) *thread_id = thread->id;
  return HandleTable::Get().Add(std::make_shared<ThreadObject>(thread));
}

void Sleep(DWORD milliseconds) {
  EnterCall("Sleep");
  Scheduler::Get().SleepFor(perilink::platform::ToMicros(milliseconds));
}
