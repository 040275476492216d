#include "commands/request_frames.h"

#include <array>

#include "platform/runtime.h"
#include "transport/frame.h"

namespace perilink {
namespace {

constexpr uint8_t kDeviceInfoLength = 0x08;

}  // namespace

CommandFrame BuildOnLineFrame() {
  return BuildFrame(PERILINK_COMMAND_ON_LINE, 0);
}

CommandFrame BuildDeviceInfoFrame(bool keyboard) {
  SeedRandom(static_cast<uint32_t>(CalendarTime()));
  std::array<uint8_t, 4> challenge;
  for (uint8_t& byte : challenge)
    byte = static_cast<uint8_t>(NextRandom());
  const uint8_t target = keyboard ? uint8_t{PERILINK_KEYBOARD_BIT} : uint8_t{0};
  return BuildFrame(PERILINK_COMMAND_DEVICE_INFO, kDeviceInfoLength | target, challenge);
}

}  // namespace perilink
