#include "call.h"

#include <atomic>
#include <mutex>
#include <string>

#include "perilink_platform/world.h"
#include "scheduler.h"

namespace perilink::platform {
namespace {

struct Fault {
  std::atomic<bool> armed{false};
  std::mutex mutex;
  std::string function;
  uint64_t nth = 0;
  bool for_ever = false;
  uint32_t error = 0;
  uint64_t calls = 0;
};

Fault& TheFault() {
  static Fault* const fault = new Fault;
  return *fault;
}

}  // namespace

void EnterCall(const char* function) {
  if (IsVirtual()) Scheduler::Get().Current(function);
}

DWORD InjectedError(const char* function) {
  EnterCall(function);
  Fault& fault = TheFault();
  if (!fault.armed.load(std::memory_order_relaxed)) return 0;
  const std::lock_guard lock(fault.mutex);
  if (!fault.armed || (fault.function != "*" && fault.function != function)) return 0;
  ++fault.calls;
  const bool hit = fault.calls == fault.nth || (fault.for_ever && fault.calls > fault.nth);
  return hit ? fault.error : 0;
}

bool CallMustFail(const char* function) {
  const DWORD error = InjectedError(function);
  if (error == 0) return false;
  SetLastError(error);
  return true;
}

void ArmFault(const std::string& function, uint64_t nth, bool for_ever, uint32_t error) {
  Fault& fault = TheFault();
  const std::lock_guard lock(fault.mutex);
  fault.function = function;
  fault.nth = nth;
  fault.for_ever = for_ever;
  fault.error = error;
  fault.calls = 0;
  fault.armed = true;
}

void DisarmFault() {
  const std::lock_guard lock(TheFault().mutex);
  TheFault().armed = false;
}

uint64_t PlatformCallCount() {
  const std::lock_guard lock(TheFault().mutex);
  return TheFault().calls;
}

}  // namespace perilink::platform
