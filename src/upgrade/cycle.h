// The pace of the polling steps: ticks, and cycles of 21 ticks counted against a limit.
#ifndef PERILINK_SRC_UPGRADE_CYCLE_H_
#define PERILINK_SRC_UPGRADE_CYCLE_H_

#include <cstdint>

#include "platform/win32.h"
#include "upgrade/events.h"
#include "upgrade/tick.h"
#include "upgrade/upgrade_record.h"

namespace perilink {

class CycleClock {
 public:
  explicit CycleClock(UsbUpgradeFile& record)
      : record_(record), limit_(record.timeout / 100), last_tick_ms_(GetTickCount64()) {}

  // Sleeps through the ticks of a cycle; each counts as progress.
  void SleepCycle() {
    for (int tick = 0; tick < kTicksPerCycle; ++tick) {
      SleepTick();
      ++record_.progress;
      ReportProgress(record_);
    }
  }

  // Counts one more cycle; false when that exceeds the limit.
  bool CountCycle() { return ++cycles_ <= limit_; }
  void RestartCount() { cycles_ = 0; }
  uint32_t limit() const { return limit_; }

 private:
  static constexpr int kTicksPerCycle = 21;

  void SleepTick() {
    ULONGLONG now = GetTickCount64();
    while (now - last_tick_ms_ < kTickMs) {
      Sleep(static_cast<DWORD>(kTickMs - (now - last_tick_ms_)));
      now = GetTickCount64();
    }
    last_tick_ms_ = now;
  }

  UsbUpgradeFile& record_;
  const uint32_t limit_;
  uint32_t cycles_ = 0;
  ULONGLONG last_tick_ms_;
};

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_CYCLE_H_
