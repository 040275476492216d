// The command frame: its checksum, the type of one whose checksum holds, the keyboard target, and
// the one builder of requests.
#ifndef PERILINK_SRC_TRANSPORT_FRAME_H_
#define PERILINK_SRC_TRANSPORT_FRAME_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "perilink/records.h"

namespace perilink {

inline constexpr uint8_t kReportId = 0x08;
inline constexpr uint8_t kKeyboardTargetBit = 0x80;
inline constexpr size_t kFrameDataCapacity = sizeof(CommandFrame::data);

// The command codes that the library itself gives a meaning to.
enum Command : uint8_t {
  kCommandDeviceInfo = 0x01,
  kCommandDriverStatus = 0x02,
  kCommandOnLine = 0x03,
  kCommandBatteryLevel = 0x04,
  kCommandPair = 0x05,
  kCommandPairStatus = 0x06,
  kCommandWriteMemory = 0x07,
  kCommandReadMemory = 0x08,
  kCommandClearSetting = 0x09,
  kCommandEvent = 0x0A,
  kCommandVidPid = 0x0B,
  kCommandDescriptorString = 0x0C,
  kCommandUsbUpdateMode = 0x0D,
  kCommandReadConfig = 0x0E,
  kCommandSetConfig = 0x0F,
  kCommandMtkMode = 0x11,
  kCommandVersion = 0x12,
  kCommandSetDongleRgb = 0x14,
  kCommandGetDongleRgb = 0x15,
  kCommandSetLongRange = 0x16,
  kCommandGetLongRange = 0x17,
  kCommandSetRgbBarMode = 0x18,
  kCommandGetRgbBarMode = 0x19,
  kCommandDongleIdToMouse = 0x1A,
  kCommandSetSerialNumber = 0x1F,
  kCommandGetSerialNumber = 0x20,
  kCommandRssi = 0x2B,
  kCommandSetIndicatorLed = 0x2C,
  kCommandGetIndicatorLed = 0x2D,
  kCommandSlaveVersion = 0xB3,
  kCommandWriteCidMid = 0xF0,
  kCommandReadCidMid = 0xF1,
};

// 0x55 minus the sum of buffer[first] to buffer[end - 1], modulo 256; 0x55 for an empty range.
constexpr uint8_t ChecksumRange(const uint8_t* buffer, size_t first, size_t end) {
  uint8_t sum = 0;
  for (size_t i = first; i < end; ++i)
    sum = static_cast<uint8_t>(sum + buffer[i]);
  return static_cast<uint8_t>(0x55 - sum);
}

// The bytes of a frame, as they travel.
inline std::span<const uint8_t, sizeof(CommandFrame)> FrameBytes(const CommandFrame& frame) {
  return std::span<const uint8_t, sizeof(CommandFrame)>(&frame.report_id, sizeof(CommandFrame));
}
inline std::span<uint8_t, sizeof(CommandFrame)> FrameBytes(CommandFrame& frame) {
  return std::span<uint8_t, sizeof(CommandFrame)>(&frame.report_id, sizeof(CommandFrame));
}

// The checksum that belongs into the frame's last byte.
inline uint8_t FrameChecksum(const CommandFrame& frame) {
  return ChecksumRange(FrameBytes(frame).data(), 0, offsetof(CommandFrame, checksum));
}

// The address of a memory command, of its request and of its answer.
inline uint16_t FrameAddress(const CommandFrame& frame) {
  return static_cast<uint16_t>(frame.address_high << 8 | frame.address_low);
}

// The data length that the frame declares, without the keyboard's bit.
inline uint8_t FrameDataLength(const CommandFrame& frame) {
  return frame.length & uint8_t{0x7F};
}

// A report whose checksum holds. Only Check makes one, so code that is given one need not test it.
class ValidFrame {
 public:
  // Looks at the report's first 17 bytes; those that are missing count as zeros.
  static std::optional<ValidFrame> Check(std::span<const uint8_t> report);

  const CommandFrame& operator*() const { return frame_; }
  const CommandFrame* operator->() const { return &frame_; }

 private:
  explicit ValidFrame(const CommandFrame& frame) : frame_(frame) {}

  CommandFrame frame_;
};

// The process-wide keyboard target: while it is set, the frames that the library builds carry bit
// 7 in their length byte. Clear at load; any thread may read and set it.
bool KeyboardTargetFlag();
void SetKeyboardTargetFlag(bool set);

// A complete request: report id, command, declared length (with the keyboard target's bit while
// the flag is set), address, payload (at most 10 bytes; the rest stays 0) and checksum.
CommandFrame BuildFrame(uint8_t command, uint8_t declared_length,
                        std::span<const uint8_t> payload = {}, uint16_t address = 0);

// The same with the length byte as given, whatever the keyboard target.
CommandFrame BuildFrameWithLengthByte(uint8_t command, uint8_t length_byte,
                                      std::span<const uint8_t> payload = {}, uint16_t address = 0);

}  // namespace perilink

#endif  // PERILINK_SRC_TRANSPORT_FRAME_H_
