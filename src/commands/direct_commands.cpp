// The direct commands: each is a request from the one frame builder and what its reply means.
#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <span>

#include "commands/decoders.h"
#include "commands/request_frames.h"
#include "perilink/finder.h"
#include "platform/guard.h"
#include "transport/exchange.h"
#include "transport/frame.h"

namespace perilink {
namespace {

// Set commands declare all ten data bytes, however few they use; Get commands declare none.
constexpr uint8_t kSetLength = PERILINK_FRAME_DATA_SIZE;
constexpr uint8_t kGetLength = 0;
// The two customer and model id commands address the keyboard target, whatever the flag.
constexpr uint8_t kCidMidLengthByte = PERILINK_KEYBOARD_BIT | 3;

constexpr uint8_t kSetRgbEchoed = 0;
constexpr uint8_t kSetRgbDiffers = 1;
constexpr uint8_t kSetRgbNoReply = 3;

// The accepted reply to a request, or none.
std::optional<CommandFrame> Ask(const std::wstring& path, const CommandFrame& request,
                                int32_t retries = kExchangeRetries,
                                int32_t timeout_ms = kExchangeTimeoutMs) {
  return Guarded(std::optional<CommandFrame>(), [&]() -> std::optional<CommandFrame> {
    CommandFrame reply;
    if (!ExchangeFrame(path, request, reply, retries, timeout_ms)) return std::nullopt;
    return reply;
  });
}

std::optional<CommandFrame> AskGet(const std::wstring& path, uint8_t command) {
  return Ask(path, BuildFrame(command, kGetLength));
}

std::optional<CommandFrame> AskSet(const std::wstring& path, uint8_t command,
                                   std::span<const uint8_t> payload) {
  return Ask(path, BuildFrame(command, kSetLength, payload));
}

// Fills a record with the reply's first data bytes; without a reply it stays as it is.
template <typename Record>
bool Store(const std::optional<CommandFrame>& reply, Record& record) {
  static_assert(sizeof(Record) <= kFrameDataCapacity);
  if (!reply) return false;
  std::memcpy(&record, reply->data, sizeof record);
  return true;
}

// The reply of both customer and model id commands; its check byte covers the first id alone.
bool StoreCidMid(const CommandFrame& reply, CidMid& ids) {
  ids.cid = reply.data[0];
  ids.mid = reply.data[1];
  ids.flag = (reply.length & PERILINK_KEYBOARD_BIT) != 0 ? 1 : 0;
  return reply.data[2] == Perilink_CheckByte(&reply.data[0], 1);
}

// The command with the caller's own data; none for data that no frame can hold.
std::optional<CommandFrame> BuildDataFrame(uint8_t command, const uint8_t* data, uint8_t length) {
  if (length > kFrameDataCapacity) return std::nullopt;
  if (length == 0) return BuildFrame(command, 0);
  return BuildFrame(command, length, {data, length});
}

}  // namespace
}  // namespace perilink

using namespace perilink;

void UsbFinder_SetMouseMode() {
  SetKeyboardTargetFlag(false);
}

void UsbFinder_SetKeyboardMode() {
  SetKeyboardTargetFlag(true);
}

DeviceInfo UsbFinder_GetDeviceInfo(const std::wstring& path, uint8_t keyboard) {
  const auto reply = Ask(path, BuildDeviceInfoFrame(keyboard != 0));
  return reply ? DecodeDeviceInfo(reply->data) : DeviceInfo{};
}

bool UsbFinder_GetDeviceOnLine(const std::wstring& path) {
  const auto reply = Ask(path, BuildOnLineFrame());
  return reply && reply->data[0] != 0;
}

bool UsbFinder_GetDeviceOnLineWithUsbAddress(const std::wstring& path, CommandFrame* reply) {
  const auto accepted = Ask(path, BuildOnLineFrame());
  *reply = accepted.value_or(CommandFrame{});
  return accepted.has_value();
}

bool UsbFinder_GetBatteryLevel(const std::wstring& path, BatteryLevel* battery) {
  const auto reply = AskGet(path, PERILINK_COMMAND_BATTERY_LEVEL);
  if (!reply) return false;
  *battery = DecodeBatteryLevel(reply->data);
  return true;
}

int32_t UsbFinder_GetCurrentDPI(const std::wstring& path) {
  const auto reply =
      Ask(path, BuildFrame(PERILINK_COMMAND_READ_MEMORY, 1, {}, PERILINK_CURRENT_DPI_ADDRESS));
  return reply ? reply->data[0] : 0;
}

int32_t UsbFinder_GetVersion(const std::wstring& path) {
  const auto reply = AskGet(path, PERILINK_COMMAND_VERSION);
  return reply ? DecodeVersion(reply->data) : 0;
}

bool UsbFinder_GetSlaveVersion(const std::wstring& path, int32_t* version) {
  const auto reply = AskGet(path, PERILINK_COMMAND_SLAVE_VERSION);
  *version = reply ? DecodeVersion(reply->data) : 0;
  return reply.has_value();
}

uint8_t UsbFinder_Set4KDongleRGB(const std::wstring& path, const DataRecord10* value) {
  const auto reply = AskSet(path, PERILINK_COMMAND_SET_DONGLE_RGB, value->bytes);
  if (!reply) return kSetRgbNoReply;
  if (reply->status != 0) return reply->status;
  return std::ranges::equal(reply->data, value->bytes) ? kSetRgbEchoed : kSetRgbDiffers;
}

bool UsbFinder_Get4KDongleRGBValue(const std::wstring& path, DataRecord10* value) {
  const auto reply = AskGet(path, PERILINK_COMMAND_GET_DONGLE_RGB);
  return Store(reply, *value) && reply->length != 0;
}

bool UsbFinder_SetLongRangeMode(const std::wstring& path, uint8_t mode) {
  const auto reply = AskSet(path, PERILINK_COMMAND_SET_LONG_RANGE, {&mode, 1});
  return reply && reply->data[0] == mode;
}

bool UsbFinder_GetLongRangeMode(const std::wstring& path, uint8_t* mode) {
  *mode = 0;
  return Store(AskGet(path, PERILINK_COMMAND_GET_LONG_RANGE), *mode);
}

bool UsbFinder_SetDongleRGBBarMode(const std::wstring& path, const RgbBarMode* mode) {
  std::array<uint8_t, 6> payload{};
  payload[0] = mode->enabled != 0 ? mode->mode : uint8_t{0};
  std::ranges::copy(mode->settings, payload.begin() + 1);
  return AskSet(path, PERILINK_COMMAND_SET_RGB_BAR_MODE, payload).has_value();
}

bool UsbFinder_GetDongleRGBBarMode(const std::wstring& path, RgbBarMode* mode) {
  const auto reply = AskGet(path, PERILINK_COMMAND_GET_RGB_BAR_MODE);
  return Store(reply, *mode) && reply->length != 0;
}

bool UsbFinder_SetDongleIDToMouse(const std::wstring& path, const DataRecord10* id) {
  const auto reply = AskSet(path, PERILINK_COMMAND_DONGLE_ID_TO_MOUSE, id->bytes);
  return reply && reply->length != 0;
}

bool UsbFinder_SetMouseSerialNumber(const std::wstring& path, const DataRecord10* number) {
  return AskSet(path, PERILINK_COMMAND_SET_SERIAL_NUMBER, number->bytes).has_value();
}

bool UsbFinder_GetMouseSerialNumber(const std::wstring& path, DataRecord10* number) {
  return Store(AskGet(path, PERILINK_COMMAND_GET_SERIAL_NUMBER), *number);
}

bool UsbFinder_GetRSSI(const std::wstring& path, uint8_t* rssi) {
  return Store(AskGet(path, PERILINK_COMMAND_RSSI), *rssi);
}

bool UsbFinder_SetDongleIndicatorLed(const std::wstring& path, const IndicatorLed* led) {
  return AskSet(path, PERILINK_COMMAND_SET_INDICATOR_LED, led->bytes).has_value();
}

bool UsbFinder_GetDongleIndicatorLed(const std::wstring& path, IndicatorLed* led) {
  return Store(AskGet(path, PERILINK_COMMAND_GET_INDICATOR_LED), *led);
}

bool UsbFinder_ReadCidMid(const std::wstring& path, uint8_t /*unused*/, CidMid* ids) {
  const auto reply =
      Ask(path, BuildFrameWithLengthByte(PERILINK_COMMAND_READ_CID_MID, kCidMidLengthByte));
  return reply && StoreCidMid(*reply, *ids);
}

bool UsbFinder_WriteCidMid(const std::wstring& path, uint8_t a, uint8_t b, uint8_t c, CidMid* ids) {
  const std::array<uint8_t, 3> payload = {a, b, c};
  const auto reply = Ask(
      path, BuildFrameWithLengthByte(PERILINK_COMMAND_WRITE_CID_MID, kCidMidLengthByte, payload));
  *ids = CidMid{};
  return reply && StoreCidMid(*reply, *ids);
}

bool UsbFinder_SetData(const std::wstring& path, uint8_t command, const uint8_t* data,
                       uint8_t length) {
  const auto request = BuildDataFrame(command, data, length);
  return request && Ask(path, *request);
}

bool UsbFinder_GetData(const std::wstring& path, uint8_t command, DataRecord10* result) {
  return Store(Ask(path, BuildFrame(command, kSetLength)), *result);
}

bool UsbFinder_SetCommand(const std::wstring& path, uint8_t command, const uint8_t* data,
                          uint8_t length, int32_t retries, int32_t timeout_ms,
                          DataRecord10* result) {
  const auto request = BuildDataFrame(command, data, length);
  return request && Store(Ask(path, *request, retries, timeout_ms), *result);
}
