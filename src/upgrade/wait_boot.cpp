#include "upgrade/boot_devices.h"
#include "upgrade/cycle.h"
#include "upgrade/events.h"
#include "upgrade/log.h"
#include "upgrade/steps.h"

namespace perilink {
namespace {

constexpr int kStableSightings = 3;

}  // namespace

bool WaitBootMode(UsbUpgradeFile& record) {
  LogLine(L"Start WaitBootMode");
  CycleClock clock(record);
  int stable = 0;
  for (;;) {
    clock.SleepCycle();
    if (!clock.CountCycle()) {
      LogLine(L"WaitBootMode-NotBootFoundDeviceError-TimeOut-", clock.limit());
      EndUpgrade(record, PERILINK_UPGRADE_RESULT_NO_BOOT_DEVICE, 1);
      return false;
    }
    const size_t inputs = FindDevicePaths(record.boot_input_key).size();
    const size_t outputs = FindDevicePaths(record.boot_output_key).size();
    if (inputs > 1 || outputs > 1) {
      LogLine(L"WaitBootMode-Multi Boot Device Error");
      EndUpgrade(record, PERILINK_UPGRADE_RESULT_BOOT_INTERFACES, EventCount(inputs),
                 EventCount(outputs));
      return false;
    }
    if (inputs == 0 || outputs == 0) {
      stable = 0;
      continue;
    }
    clock.RestartCount();
    LogLine(L"WaitBootMode-Found one device-wait stable");
    if (++stable < kStableSightings) continue;
    LogLine(L"WaitBootMode-usb stable");
    SendUpgradeEvent(record, PERILINK_UPGRADE_NOTICE, PERILINK_UPGRADE_NOTICE_BOOT, 2);
    return true;
  }
}

}  // namespace perilink
