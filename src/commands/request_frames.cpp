#include "commands/request_frames.h"

#include <array>

#include "platform/runtime.h"
#include "transport/frame.h"

namespace perilink {
namespace {

constexpr uint8_t kDeviceInfoLength = 0x08;

}  // namespace

CommandFrame BuildOnLineFrame() {
  return BuildFrame(kCommandOnLine, 0);
}

CommandFrame BuildDeviceInfoFrame(bool keyboard) {
  SeedRandom(static_cast<uint32_t>(CalendarTime()));
  std::array<uint8_t, 4> challenge;
  for (uint8_t& byte : challenge)
    byte = static_cast<uint8_t>(NextRandom());
  const uint8_t target = keyboard ? kKeyboardTargetBit : uint8_t{0};
  return BuildFrame(kCommandDeviceInfo, kDeviceInfoLength | target, challenge);
}

}  // namespace perilink
