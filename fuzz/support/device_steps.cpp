#include "support/device_steps.h"

#include <algorithm>
#include <iterator>

#include "transport/frame.h"

namespace perilink::fuzz {
CommandFrame RightAnswer(const CommandFrame& request, const sim::FlashImage& flash) {
  CommandFrame answer = request;
  if (request.command == PERILINK_COMMAND_READ_MEMORY) {
    const size_t address = size_t{request.address_high} << 8 | request.address_low;
    for (size_t i = 0; i < std::size(answer.data); ++i)
      answer.data[i] = address + i < sim::kFlashSize ? flash[address + i] : uint8_t{0xFF};
  } else if (request.command != PERILINK_COMMAND_WRITE_MEMORY) {
    std::fill(std::begin(answer.data), std::end(answer.data), uint8_t{1});
  }
  answer.checksum = FrameChecksum(answer);
  return answer;
}

}  // namespace perilink::fuzz
