// The virtual devices' reading of the protocol against the public headers'.
#include "perilink/protocol.h"

#include <gtest/gtest.h>

#include <set>

#include "perilink/config_layout.h"
#include "sim/flash_image.h"
#include "sim/report.h"
#include "sim/upgrade_file.h"

namespace perilink::sim {
namespace {

TEST(Protocol, DeviceAndHostNameTheSameCodes) {
  const std::pair<uint8_t, int> codes[] = {
      {command::kDeviceInfo, PERILINK_COMMAND_DEVICE_INFO},
      {command::kDriverStatus, PERILINK_COMMAND_DRIVER_STATUS},
      {command::kOnLine, PERILINK_COMMAND_ON_LINE},
      {command::kBattery, PERILINK_COMMAND_BATTERY_LEVEL},
      {command::kPair, PERILINK_COMMAND_PAIR},
      {command::kPairStatus, PERILINK_COMMAND_PAIR_STATUS},
      {command::kWriteMemory, PERILINK_COMMAND_WRITE_MEMORY},
      {command::kReadMemory, PERILINK_COMMAND_READ_MEMORY},
      {command::kClearSetting, PERILINK_COMMAND_CLEAR_SETTING},
      {command::kEvent, PERILINK_COMMAND_EVENT},
      {command::kVidPid, PERILINK_COMMAND_VID_PID},
      {command::kDescriptorString, PERILINK_COMMAND_DESCRIPTOR_STRING},
      {command::kUpdateMode, PERILINK_COMMAND_USB_UPDATE_MODE},
      {command::kReadConfig, PERILINK_COMMAND_READ_CONFIG},
      {command::kSetConfig, PERILINK_COMMAND_SET_CONFIG},
      {command::kMtkMode, PERILINK_COMMAND_MTK_MODE},
      {command::kVersion, PERILINK_COMMAND_VERSION},
      {command::kSetDongleRgb, PERILINK_COMMAND_SET_DONGLE_RGB},
      {command::kGetDongleRgb, PERILINK_COMMAND_GET_DONGLE_RGB},
      {command::kSetLongRange, PERILINK_COMMAND_SET_LONG_RANGE},
      {command::kGetLongRange, PERILINK_COMMAND_GET_LONG_RANGE},
      {command::kSetBarMode, PERILINK_COMMAND_SET_RGB_BAR_MODE},
      {command::kGetBarMode, PERILINK_COMMAND_GET_RGB_BAR_MODE},
      {command::kDongleIdToMouse, PERILINK_COMMAND_DONGLE_ID_TO_MOUSE},
      {command::kSetSerial, PERILINK_COMMAND_SET_SERIAL_NUMBER},
      {command::kGetSerial, PERILINK_COMMAND_GET_SERIAL_NUMBER},
      {command::kRssi, PERILINK_COMMAND_RSSI},
      {command::kSetIndicator, PERILINK_COMMAND_SET_INDICATOR_LED},
      {command::kGetIndicator, PERILINK_COMMAND_GET_INDICATOR_LED},
      {command::kSlaveVersion, PERILINK_COMMAND_SLAVE_VERSION},
      {command::kWriteCidMid, PERILINK_COMMAND_WRITE_CID_MID},
      {command::kReadCidMid, PERILINK_COMMAND_READ_CID_MID},
      {kCommandReportId, PERILINK_REPORT_ID},
      {kKeyboardBit, PERILINK_KEYBOARD_BIT},
      {kBatteryFlag, PERILINK_EVENT_BATTERY},
      {boot::kStart, PERILINK_BOOT_START},
      {boot::kData, PERILINK_BOOT_DATA},
      {boot::kMore, PERILINK_BOOT_MORE},
      {boot::kLast, PERILINK_BOOT_LAST},
      {boot::kError, PERILINK_BOOT_ERROR},
      {boot::kErrorMark, PERILINK_BOOT_ERROR_MARK},
      {boot::kStatus, PERILINK_BOOT_STATUS},
      {boot::kStatusMark, PERILINK_BOOT_STATUS_MARK},
      {boot::kStatusEnd, PERILINK_UPGRADE_NOTICE_END},
  };
  for (const auto& [device, host] : codes)
    EXPECT_EQ(device, host);
}

TEST(Protocol, DeviceAndHostHaveTheSameMemory) {
  std::set<std::pair<size_t, size_t>> host;
  for (const ConfigGroup& group : kConfigGroups) {
    for (size_t entry = 0; entry < group.count; ++entry) {
      for (size_t i = 0; i < group.field_count; ++i) {
        const ConfigField& field = group.fields[i];
        host.emplace(field.flash_address + entry * field.flash_stride, field.width);
      }
    }
  }
  std::set<std::pair<size_t, size_t>> device;
  for (const FlashField& field : FlashFields())
    device.emplace(field.address, field.width);
  EXPECT_EQ(device, host);

  for (size_t slot = 0; slot < kSlotCount; ++slot) {
    EXPECT_EQ(ShortcutAddress(slot), Perilink_ShortcutSlotAddress(slot));
    EXPECT_EQ(MacroAddress(slot), Perilink_MacroSlotAddress(slot));
  }
  EXPECT_EQ(kSlotCount, size_t{PERILINK_SLOTS});
  EXPECT_EQ(kConfigurationSize, size_t{PERILINK_FLASH_IMAGE_SIZE});
}

TEST(Protocol, DeviceAndHostReadTheSameUpgradeHeader) {
  UpgradeImage image;
  image.boot_input = "boot in", image.boot_output = "boot out";
  image.normal_input = "in", image.normal_output = "out";
  image.reset = {1, true, {2, 3}}, image.start = {4, false, {5}}, image.packet = {6, true, {7}};
  image.payload_length = 8, image.slave_offset = 9;
  const Bytes bytes = UpgradeFileBuilder::BuildImage(image);
  UpgradeFileHeader header;
  ASSERT_EQ(bytes.size(), size_t{PERILINK_UPGRADE_HEADER_SIZE});
  std::copy_n(bytes.begin(), sizeof header, reinterpret_cast<uint8_t*>(&header));

  EXPECT_EQ(header.checksum, Perilink_UpgradeChecksum(bytes.data(), image.checked_length));
  EXPECT_EQ(uint32_t{header.checked_length}, image.checked_length);
  EXPECT_EQ(uint32_t{header.payload_length}, 8u);
  EXPECT_EQ(uint32_t{header.slave_offset}, 9u);
  const std::pair<const char*, std::string> texts[] = {
      {header.file_id, image.file_id},           {header.chip_name, image.ic_name},
      {header.boot_input_key, image.boot_input}, {header.boot_output_key, image.boot_output},
      {header.normal_input_key, "in"},           {header.normal_output_key, "out"},
      {header.sensor_name, image.sensor_name},   {header.product_name, image.product_name}};
  for (const auto& [text, wanted] : texts)
    EXPECT_STREQ(text, wanted.c_str());
  const UpgradeFileCommand& reset = header.reset_command;
  EXPECT_EQ((Bytes{reset.length, reset.use_feature_report, reset.data[0], reset.data[1]}),
            (Bytes{1, 1, 2, 3}));
  EXPECT_EQ(header.start_command.data[0], 5);
  EXPECT_EQ(header.packet_template.data[0], 7);
}

}  // namespace
}  // namespace perilink::sim
