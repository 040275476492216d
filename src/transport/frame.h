// The command frame: its checksum, the type of one whose checksum holds, the keyboard target, and
// the one builder of requests.
#ifndef PERILINK_SRC_TRANSPORT_FRAME_H_
#define PERILINK_SRC_TRANSPORT_FRAME_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "perilink/protocol.h"

namespace perilink {

inline constexpr size_t kFrameDataCapacity = PERILINK_FRAME_DATA_SIZE;

// The bytes of a frame, as they travel.
inline std::span<const uint8_t, sizeof(CommandFrame)> FrameBytes(const CommandFrame& frame) {
  return std::span<const uint8_t, sizeof(CommandFrame)>(&frame.report_id, sizeof(CommandFrame));
}
inline std::span<uint8_t, sizeof(CommandFrame)> FrameBytes(CommandFrame& frame) {
  return std::span<uint8_t, sizeof(CommandFrame)>(&frame.report_id, sizeof(CommandFrame));
}

// The checksum that belongs into the frame's last byte.
inline uint8_t FrameChecksum(const CommandFrame& frame) {
  return Perilink_CheckByte(FrameBytes(frame).data(), offsetof(CommandFrame, checksum));
}

// The address of a memory command, of its request and of its answer.
inline uint16_t FrameAddress(const CommandFrame& frame) {
  return static_cast<uint16_t>(frame.address_high << 8 | frame.address_low);
}

// The data length that the frame declares, without the keyboard's bit.
inline uint8_t FrameDataLength(const CommandFrame& frame) {
  return frame.length & uint8_t{PERILINK_LENGTH_MASK};
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
