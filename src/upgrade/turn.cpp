#include "upgrade/turn.h"

#include <mutex>
#include <thread>

#include "platform/win32.h"

namespace perilink {
namespace {

constexpr ULONGLONG kLongestEndMs = 1000;

enum class Phase { kIdle, kRunning, kEnding };

struct Turn {
  std::mutex mutex;
  Phase phase = Phase::kIdle;
  std::thread::id ending_thread;
};

// Never destroyed: the upgrade thread may end after the process's statics have.
Turn& TheTurn() {
  static Turn& turn = *new Turn;
  return turn;
}

// What a start finds; takes an idle turn.
Phase TryTake() {
  Turn& turn = TheTurn();
  const std::lock_guard lock(turn.mutex);
  if (turn.phase == Phase::kEnding && turn.ending_thread == std::this_thread::get_id())
    return Phase::kRunning;
  const Phase found = turn.phase;
  if (found == Phase::kIdle) turn.phase = Phase::kRunning;
  return found;
}

}  // namespace

bool TakeUpgradeTurn() {
  const ULONGLONG start = GetTickCount64();
  for (;;) {
    const Phase found = TryTake();
    if (found != Phase::kEnding) return found == Phase::kIdle;
    if (GetTickCount64() - start >= kLongestEndMs) return false;
    Sleep(1);
  }
}

void AnnounceUpgradeEnd() {
  Turn& turn = TheTurn();
  const std::lock_guard lock(turn.mutex);
  turn.phase = Phase::kEnding;
  turn.ending_thread = std::this_thread::get_id();
}

void GiveUpgradeTurn() {
  Turn& turn = TheTurn();
  const std::lock_guard lock(turn.mutex);
  turn.phase = Phase::kIdle;
}

}  // namespace perilink
