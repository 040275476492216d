#include "upgrade/events.h"

#include <algorithm>

#include "platform/guard.h"

namespace perilink {

void SendUpgradeEvent(UpgradeCallback callback, uint8_t kind, uint8_t code, uint8_t arg1,
                      uint8_t arg2) noexcept {
  if (callback == nullptr) return;
  const UpgradeEvent event{PERILINK_UPGRADE_MESSAGE_CLASS, kind, code, arg1, arg2, {}};
  Guarded([&] { callback(&event.message_class, sizeof(event)); });
}

void SendUpgradeEvent(const UsbUpgradeFile& record, uint8_t kind, uint8_t code, uint8_t arg1,
                      uint8_t arg2) noexcept {
  SendUpgradeEvent(record.callback, kind, code, arg1, arg2);
}

void EndUpgrade(UsbUpgradeFile& record, PerilinkUpgradeResult code, uint8_t arg1, uint8_t arg2) {
  record.result = UpgradeResult{static_cast<uint8_t>(code), arg1, arg2};
}

void ReportProgress(UsbUpgradeFile& record) {
  if (record.total_packet_count == 0) return;
  const int64_t exact = int64_t{record.progress} * 100 / record.total_packet_count;
  const auto percent = static_cast<int32_t>(std::min<int64_t>(exact, INT32_MAX));
  if (percent == record.last_percent) return;
  record.last_percent = percent;
  SendUpgradeEvent(record, PERILINK_UPGRADE_PROGRESS, static_cast<uint8_t>(std::min(percent, 100)));
}

}  // namespace perilink
