// A whole upgrade: one or two devices, on a thread of its own.
#include <optional>

#include "perilink/upgrade.h"
#include "platform/guard.h"
#include "platform/handles.h"
#include "platform/module.h"
#include "upgrade/boot_devices.h"
#include "upgrade/download.h"
#include "upgrade/events.h"
#include "upgrade/log.h"
#include "upgrade/steps.h"
#include "upgrade/turn.h"
#include "upgrade/upgrade_record.h"

namespace perilink {
namespace {

// Progress units for the waits of an upgrade, beside its packets.
constexpr int32_t kWaitUnits = 200;

// The records of the running upgrade; whoever has the turn may use them. Never destroyed: the
// upgrade thread may still run while the process exits.
struct UpgradeRecords {
  UsbUpgradeFile main;
  UsbUpgradeFile slave;
};

UpgradeRecords& Records() {
  static UpgradeRecords& records = *new UpgradeRecords;
  return records;
}

bool UpgradeDevice(UsbUpgradeFile& record, bool wait_normal) {
  return ResetToBootMode(record, wait_normal) && WaitBootMode(record) && DownloadFile(record);
}

void UpgradeSlaveThenMain(UsbUpgradeFile& main, UsbUpgradeFile& slave) {
  slave.is_end = false;
  main.is_end = true;
  LogLine(L"Start Upgrade Slave ");
  if (!UpgradeDevice(slave, false)) return;
  main.progress = slave.progress;
  LogLine(L"Start Upgrade Main ");
  UpgradeDevice(main, false);
}

// The main device waits in boot mode and hides the slave behind it: the slave shows its normal
// interfaces only after the main device has come back.
void UpgradeMainThenSlave(UsbUpgradeFile& main, UsbUpgradeFile& slave) {
  slave.is_end = true;
  main.is_end = false;
  LogLine(L"Start Upgrade Main Boot");
  if (!UpgradeDevice(main, false)) return;
  slave.progress = main.progress;
  LogLine(L"Start Upgrade Slave");
  UpgradeDevice(slave, true);
}

void UpgradeBoth(UsbUpgradeFile& main, UsbUpgradeFile& slave, int32_t total) {
  total += kWaitUnits;
  main.total_packet_count = total;
  slave.total_packet_count = total;
  LogLine(L"Main and Slave Mode,totalPacketCount = ", total);
  if (FindNormalDevice(slave)) {
    UpgradeSlaveThenMain(main, slave);
  } else if (!FindBootDevices(main).empty()) {
    UpgradeMainThenSlave(main, slave);
  }
}

void UpgradeMainOnly(UsbUpgradeFile& main, int32_t total) {
  if (FindNormalDevice(main)) {
    LogLine(L"Found Normal Device");
    total += kWaitUnits;
  } else {
    LogLine(L"Not found Normal Device");
  }
  main.total_packet_count = total;
  UpgradeDevice(main, false);
}

void RunUpgrade() {
  auto& [main, slave] = Records();
  const auto total = static_cast<int32_t>(main.packets.size() + slave.packets.size());
  LogLine(L"Start Upgrade Thread ");
  if (slave.valid) {
    UpgradeBoth(main, slave, total);
  } else {
    UpgradeMainOnly(main, total);
  }
}

struct Ending {
  UpgradeCallback callback = nullptr;
  std::optional<UpgradeResult> result;
};

// Notes a result for the host, however the steps end, except for the two ends that have none.
Ending RunToTheEnd() noexcept {
  auto& [main, slave] = Records();
  try {
    RunUpgrade();
  } catch (...) {
    LogLine(L"Upgrade broken off");
    EndUpgrade(main, PERILINK_UPGRADE_RESULT_TIMEOUT, PERILINK_UPGRADE_TIMEOUT_LIBRARY);
  }
  return {main.callback, main.result ? main.result : slave.result};
}

void UpgradeThread(void*) {
  const UpgradeThreadMark mark;
  const Ending ending = RunToTheEnd();
  if (ending.result && ending.result->code == PERILINK_UPGRADE_RESULT_SUCCESS)
    SendUpgradeEvent(ending.callback, PERILINK_UPGRADE_PROGRESS, 100);
  GiveUpgradeTurn();
  if (!ending.result) return;
  SendUpgradeEvent(ending.callback, PERILINK_UPGRADE_RESULT, ending.result->code,
                   ending.result->arg1, ending.result->arg2);
}

// Gives the turn back unless the thread has taken it over.
class StartTurn {
 public:
  StartTurn() = default;
  ~StartTurn() {
    if (held_) GiveUpgradeTurn();
  }
  StartTurn(const StartTurn&) = delete;
  StartTurn& operator=(const StartTurn&) = delete;
  void HandOver() { held_ = false; }

 private:
  bool held_ = true;
};

bool StartUpgrade(const uint8_t* file, UpgradeCallback callback, uint32_t timeout) {
  if (!TakeUpgradeTurn()) return false;
  StartTurn turn;
  ResetUpgradeLog();
  auto& [main, slave] = Records();
  main = UsbUpgradeFile{};
  ParseUpgradeImage(main, file, callback, timeout);
  LogUpgradeFile(main);
  slave = UsbUpgradeFile{};
  if (ParseSlaveImage(main, file, callback, timeout, slave)) LogUpgradeFile(slave);
  if (!main.valid && !slave.valid) {
    LogLine(L"Upgrade Bin File Error,Upgrade return");
    return false;
  }
  const UniqueEvent thread(StartLibraryThread(UpgradeThread));
  if (!thread.Valid()) return false;
  turn.HandOver();
  return true;
}

}  // namespace
}  // namespace perilink

bool UsbUpgrade_Start(const uint8_t* file, UpgradeCallback callback, uint32_t timeout) {
  return perilink::Guarded(false, [&] { return perilink::StartUpgrade(file, callback, timeout); });
}
