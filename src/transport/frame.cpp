#include "transport/frame.h"

#include <algorithm>
#include <atomic>

namespace perilink {
namespace {

std::atomic<bool> keyboard_target{false};

}  // namespace

std::optional<ValidFrame> ValidFrame::Check(std::span<const uint8_t> report) {
  CommandFrame frame{};
  std::copy_n(report.begin(), std::min(report.size(), sizeof(frame)), FrameBytes(frame).begin());
  if (FrameChecksum(frame) != frame.checksum) return std::nullopt;
  return ValidFrame(frame);
}

bool KeyboardTargetFlag() {
  return keyboard_target.load(std::memory_order_relaxed);
}
void SetKeyboardTargetFlag(bool set) {
  keyboard_target.store(set, std::memory_order_relaxed);
}

CommandFrame BuildFrame(uint8_t command, uint8_t declared_length, std::span<const uint8_t> payload,
                        uint16_t address) {
  const uint8_t target = KeyboardTargetFlag() ? uint8_t{PERILINK_KEYBOARD_BIT} : uint8_t{0};
  return BuildFrameWithLengthByte(command, declared_length | target, payload, address);
}

CommandFrame BuildFrameWithLengthByte(uint8_t command, uint8_t length_byte,
                                      std::span<const uint8_t> payload, uint16_t address) {
  CommandFrame frame{};
  frame.report_id = PERILINK_REPORT_ID;
  frame.command = command;
  frame.address_high = static_cast<uint8_t>(address >> 8);
  frame.address_low = static_cast<uint8_t>(address & 0xFF);
  frame.length = length_byte;
  std::copy_n(payload.begin(), std::min(payload.size(), kFrameDataCapacity), frame.data);
  frame.checksum = FrameChecksum(frame);
  return frame;
}

}  // namespace perilink
