#include "upgrade/turn.h"

#include <algorithm>
#include <array>
#include <atomic>

#include "platform/win32.h"

namespace perilink {
namespace {

constinit std::atomic<bool> upgrade_runs{false};

// The threads of upgrades. One upgrade runs at a time, but earlier ones may still be in their last
// callback; those beyond the room here are forgotten. 0 is no thread's number and marks a free
// place.
constinit std::array<std::atomic<DWORD>, 8> upgrade_threads{};

void Replace(DWORD wanted, DWORD number) {
  for (std::atomic<DWORD>& thread : upgrade_threads) {
    DWORD found = wanted;
    if (thread.compare_exchange_strong(found, number)) return;
  }
}

}  // namespace

bool TakeUpgradeTurn() {
  const DWORD self = GetCurrentThreadId();
  const bool from_callback = std::ranges::any_of(
      upgrade_threads, [self](const std::atomic<DWORD>& thread) { return thread == self; });
  return !from_callback && !upgrade_runs.exchange(true);
}

void GiveUpgradeTurn() {
  upgrade_runs = false;
}

UpgradeThreadMark::UpgradeThreadMark() {
  Replace(0, GetCurrentThreadId());
}

UpgradeThreadMark::~UpgradeThreadMark() {
  Replace(GetCurrentThreadId(), 0);
}

}  // namespace perilink
