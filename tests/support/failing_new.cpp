#include "support/failing_new.h"

#include <execinfo.h>
#include <link.h>
#include <unwind.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>
#include <utility>
#include <vector>

#include "platform/guard.h"

extern "C" const char __executable_start;
extern "C" const char etext;

namespace perilink::testing {
namespace {

struct OfThread {
  uint64_t left = 0;  // none is armed
  int pauses = 0;
  bool has_failed = false;
};
thread_local OfThread of_thread;

struct Armed {
  uint64_t nth = 0;
  bool for_ever = false;
  bool armed = true;
  FailingNew::Counted counted{};

  bool Fails(size_t size) {
    ++counted.allocations;
    counted.bytes += size;
    return counted.allocations == nth || (for_ever && counted.allocations > nth);
  }
};
Armed of_all{.armed = false};
std::vector<const void*> of_all_within;  // anywhere if empty
thread_local Armed of_call{.armed = false};

struct Range {
  uintptr_t begin = 0;
  uintptr_t end = 0;
};

Range FindSystem() {
  Range range;
  dl_iterate_phdr(
      [](dl_phdr_info* module, size_t, void* found) {
        if (std::strstr(module->dlpi_name, "perilink_platform") == nullptr) return 0;
        for (const ElfW(Phdr) & part : std::span(module->dlpi_phdr, module->dlpi_phnum)) {
          if (part.p_type != PT_LOAD || (part.p_flags & PF_X) == 0) continue;
          const uintptr_t begin = module->dlpi_addr + part.p_vaddr;
          *static_cast<Range*>(found) = {begin, begin + part.p_memsz};
        }
        return 1;
      },
      &range);
  return range;
}

bool IsThePrograms(const void* code) {
  const auto at = static_cast<const char*>(code);
  return at >= &__executable_start && at < &etext;
}

// The calls under way on this thread.
struct Frames {
  void* frames[100];
  int count = backtrace(frames, 100);

  // A thread begins in the system: that is where the outermost frames stand. Those inside of
  // `caller` are of this file.
  bool WithinTheSystem(void* caller) const {
    void* const* const begin = std::find(frames, frames + count, caller);
    void* const* end = frames + count;
    while (end != begin && !IsThePrograms(end[-1]))
      --end;
    return end == begin || std::any_of(begin, end, IsTheSystems);
  }
  bool Within(std::span<const void* const> functions) const {
    return std::any_of(frames, frames + count, [&](void* frame) {
      return std::ranges::count(functions, _Unwind_FindEnclosingFunction(frame)) > 0;
    });
  }
};

bool CountsForAll(void* caller) {
  const Frames stack{};
  return !stack.WithinTheSystem(caller) && (of_all_within.empty() || stack.Within(of_all_within));
}

bool MustFail(size_t size, void* caller) {
  if (of_call.armed) return of_call.Fails(size);
  if (of_all.armed && CountsForAll(caller)) return of_all.Fails(size);
  if (of_thread.left == 0 || of_thread.pauses > 0) return false;
  if (of_thread.left > 1) return --of_thread.left, false;
  if (WithinTheSystem(caller)) return false;
  of_thread.left = 0;
  return of_thread.has_failed = true;
}

}  // namespace

bool IsTheSystems(const void* code) {
  static const Range system = FindSystem();
  const auto at = reinterpret_cast<uintptr_t>(code);
  return at >= system.begin && at < system.end;
}

bool WithinTheSystem(void* caller) {
  return Frames().WithinTheSystem(caller);
}

void FailingNew::Arm(uint64_t nth) {
  of_thread.left = nth;
}
void FailingNew::Disarm() {
  of_thread.left = 0;
}
bool FailingNew::HasFailed() {
  return std::exchange(of_thread.has_failed, false);
}

void FailingNew::ArmAll(uint64_t nth, bool for_ever, std::vector<const void*> within) {
  of_all_within = std::move(within);
  of_all = {nth, for_ever};
}
uint64_t FailingNew::DisarmAll() {
  of_all.armed = false;
  return of_all.counted.allocations;
}

void FailingNew::ArmCall(uint64_t nth, bool for_ever) {
  of_call = {nth, for_ever};
}
FailingNew::Counted FailingNew::DisarmCall() {
  of_call.armed = false;
  return of_call.counted;
}

FailingNew::Pause::Pause() {
  ++of_thread.pauses;
}
FailingNew::Pause::~Pause() {
  --of_thread.pauses;
}
bool FailingNew::Paused() {
  return of_thread.pauses > 0;
}

}  // namespace perilink::testing

namespace {

void* Allocate(size_t size, void* caller) {
  void* const memory = perilink::testing::MustFail(size, caller) ? nullptr : std::malloc(size);
  return memory != nullptr ? memory : throw std::bad_alloc();
}

}  // namespace

// Out of line: inlined, a free of what the compiler knows to come from a new looks like a mistake.
[[gnu::noinline]] void* operator new(size_t size) {
  return Allocate(size, __builtin_return_address(0));
}
[[gnu::noinline]] void* operator new(size_t size, const std::nothrow_t&) noexcept {
  void* const caller = __builtin_return_address(0);
  return perilink::Guarded<void*>(nullptr, [&] { return Allocate(size, caller); });
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}
