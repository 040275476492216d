#include "server/queued_commands.h"

#include <array>
#include <cstring>

#include "battery/optimizer.h"
#include "commands/request_frames.h"
#include "perilink/server.h"
#include "platform/guard.h"
#include "server/state.h"
#include "transport/frame.h"

namespace perilink {
namespace {

// Several commands declare a full data field whatever they carry.
constexpr uint8_t kFullLength = kFrameDataCapacity;

void Append(const QueueEntry& entry) {
  ServerState::Instance().Append({&entry, 1});
}

// For the exports: a row each, nothing thrown.
void Queue(uint8_t command, uint8_t declared_length, std::span<const uint8_t> payload) noexcept {
  Guarded([&] { QueueCommand(command, declared_length, payload); });
}
void Query(uint8_t command) noexcept {
  Queue(command, 0, {});
}
void QueueByte(uint8_t command, uint8_t declared_length, uint8_t value) noexcept {
  Queue(command, declared_length, {&value, 1});
}
void QueueRecord(uint8_t command, std::span<const uint8_t> record) noexcept {
  Queue(command, kFullLength, record);
}

}  // namespace

void QueueCommand(uint8_t command, uint8_t declared_length, std::span<const uint8_t> payload) {
  Append(SingleEntry(BuildFrame(command, declared_length, payload)));
}

void QueueSetRgbBarMode(const RgbBarMode& record) {
  std::array<uint8_t, 6> payload;
  payload[0] = record.enabled != 0 ? record.mode : uint8_t{0};
  std::memcpy(&payload[1], record.settings, sizeof(record.settings));
  QueueCommand(PERILINK_COMMAND_SET_RGB_BAR_MODE, kFullLength, payload);
}

void QueueGetRgbBarMode() {
  QueueCommand(PERILINK_COMMAND_GET_RGB_BAR_MODE, 0);
}

}  // namespace perilink

using namespace perilink;

// ---- Entries that the host builds --------------------------------------------------------------

void UsbServer_InitWriteCommand(QueueEntry* entry) {
  *entry = SingleEntry(CommandFrame{});
}

void UsbServer_WriteCommand(const QueueEntry* entry) {
  Guarded([&] { perilink::Append(*entry); });
}

// ---- Queries -----------------------------------------------------------------------------------

void UsbServer_ReadOnLine(void) {
  Query(PERILINK_COMMAND_ON_LINE);
}
void UsbServer_ReadBatteryLevel(void) {
  Query(PERILINK_COMMAND_BATTERY_LEVEL);
}
void UsbServer_ReadDonglePairStatus(void) {
  Query(PERILINK_COMMAND_PAIR_STATUS);
}
void UsbServer_SetClearSetting(void) {
  Query(PERILINK_COMMAND_CLEAR_SETTING);
}
void UsbServer_EnterUsbUpdateMode(void) {
  Query(PERILINK_COMMAND_USB_UPDATE_MODE);
}
void UsbServer_ReadConfig(void) {
  Query(PERILINK_COMMAND_READ_CONFIG);
}
void UsbServer_EnterMTKMode(void) {
  Query(PERILINK_COMMAND_MTK_MODE);
}
void UsbServer_ReadVersion(void) {
  Query(PERILINK_COMMAND_VERSION);
}
void UsbServer_Get4KDongleRGBValue(void) {
  Query(PERILINK_COMMAND_GET_DONGLE_RGB);
}
void UsbServer_GetLongRangeMode(void) {
  Query(PERILINK_COMMAND_GET_LONG_RANGE);
}
void UsbServer_GetMouseSerialNumber(void) {
  Query(PERILINK_COMMAND_GET_SERIAL_NUMBER);
}
void UsbServer_GetRSSI(void) {
  Query(PERILINK_COMMAND_RSSI);
}
void UsbServer_GetDongleIndicatorLed(void) {
  Query(PERILINK_COMMAND_GET_INDICATOR_LED);
}
void UsbServer_GetSlaveVersion(void) {
  Query(PERILINK_COMMAND_SLAVE_VERSION);
}
void UsbServer_GetData(uint8_t command) {
  Query(command);
}

// ---- Settings ----------------------------------------------------------------------------------

void UsbServer_EnterDonglePairWithCidMid(uint8_t cid, uint8_t mid) {
  const uint8_t ids[] = {cid, mid};
  Queue(PERILINK_COMMAND_PAIR, sizeof(ids), ids);
}
void UsbServer_EnterDonglePair(void) {
  UsbServer_EnterDonglePairWithCidMid(0, 0);
}

void UsbServer_EnterDonglePairOnlyCid(uint8_t cid) {
  // The firmware takes it from the third byte, which the declared two do not cover.
  const uint8_t payload[] = {0, 0, cid};
  Queue(PERILINK_COMMAND_PAIR, 2, payload);
}

void UsbServer_SetVidPid(uint32_t vid, uint32_t pid) {
  const auto high = [](uint32_t id) { return static_cast<uint8_t>((id >> 8) & 0x0F); };
  const auto low = [](uint32_t id) { return static_cast<uint8_t>(id & 0xFF); };
  const uint8_t ids[] = {high(vid), low(vid), high(pid), low(pid)};
  Queue(PERILINK_COMMAND_VID_PID, sizeof(ids), ids);
}

void UsbServer_SetCurrentConfig(uint8_t config) {
  QueueByte(PERILINK_COMMAND_SET_CONFIG, 1, config);
}
void UsbServer_SetLongRangeMode(uint8_t mode) {
  QueueByte(PERILINK_COMMAND_SET_LONG_RANGE, kFullLength, mode);
}
void UsbServer_Set4KDongleRGB(const DataRecord10* record) {
  QueueRecord(PERILINK_COMMAND_SET_DONGLE_RGB, record->bytes);
}
void UsbServer_SetDongleIDToMouse(const DataRecord10* record) {
  QueueRecord(PERILINK_COMMAND_DONGLE_ID_TO_MOUSE, record->bytes);
}
void UsbServer_SetMouseSerialNumber(const DataRecord10* record) {
  QueueRecord(PERILINK_COMMAND_SET_SERIAL_NUMBER, record->bytes);
}
void UsbServer_SetDongleIndicatorLed(const IndicatorLed* record) {
  QueueRecord(PERILINK_COMMAND_SET_INDICATOR_LED, record->bytes);
}

void UsbServer_SetData(uint8_t command, const uint8_t* data, uint8_t length) {
  if (length > kFrameDataCapacity) return;
  Queue(command, length, {data, length});
}

// ---- Commands that do more than queue ----------------------------------------------------------

void UsbServer_ReadEncryption(void) {
  Guarded([] { perilink::Append(SingleEntry(BuildDeviceInfoFrame(false))); });
}

void UsbServer_SetPCDriverStatus(uint8_t status) {
  QueueByte(PERILINK_COMMAND_DRIVER_STATUS, 1, status);
  // The host has said so even if the device can't be told.
  Guarded([&] { BatteryOptimizer::Instance().SetDriverStatus(status != 0); });
}
