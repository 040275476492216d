// What a parsed image becomes: its fields, its packets, and the state of its upgrade.
#ifndef PERILINK_SRC_UPGRADE_UPGRADE_RECORD_H_
#define PERILINK_SRC_UPGRADE_UPGRADE_RECORD_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "perilink/records.h"
#include "upgrade/image.h"
#include "upgrade/packets.h"

namespace perilink {

// No mismatching echo has been seen yet.
inline constexpr uint64_t kNoRepeatMark = UINT64_MAX;

// How an upgrade has ended: a PerilinkUpgradeResult and what goes with it.
struct UpgradeResult {
  uint8_t code;
  uint8_t arg1;
  uint8_t arg2;
};

struct UsbUpgradeFile {
  UpgradeCallback callback = nullptr;
  uint32_t timeout = 0;                  // milliseconds
  int32_t last_percent = 0;              // last computed for a progress event
  int32_t repeat_count = 0;              // mismatching echoes in a row at repeat_mark
  uint64_t repeat_mark = kNoRepeatMark;  // packets left at the last mismatching echo
  UpgradeFileHeader header{};
  std::wstring chip_name;
  std::wstring file_id;
  std::wstring boot_input_key;
  std::wstring boot_output_key;
  std::wstring normal_input_key;
  std::wstring normal_output_key;
  std::wstring sensor_name;
  std::wstring product_name;
  bool valid = false;
  bool is_end = true;  // its device is the last one of the upgrade
  int32_t progress = 0;
  int32_t total_packet_count = 0;       // progress units of the whole upgrade
  std::deque<UpgradePacket> packets;    // still to be acknowledged, front first
  std::optional<UpgradeResult> result;  // set when the upgrade ends with this device
};

// Fills the record from the image and logs what it finds. An image that fails its header check
// leaves the record not valid and without packets, and all else as it was. `readable` bounds the
// image: one that does not lie within it counts as failing its check, and nothing beyond is read.
void ParseUpgradeImage(UsbUpgradeFile& record, const uint8_t* image, UpgradeCallback callback,
                       uint32_t timeout, size_t readable = kUnknownLength);

// Parses the slave image that the parsed main image names into `slave`. False when it names none.
bool ParseSlaveImage(const UsbUpgradeFile& main, const uint8_t* file, UpgradeCallback callback,
                     uint32_t timeout, UsbUpgradeFile& slave, size_t readable = kUnknownLength);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_UPGRADE_RECORD_H_
