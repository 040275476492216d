#include "support/device_steps.h"

#include <algorithm>
#include <iterator>

#include "perilink/config_layout.h"
#include "sim/report.h"
#include "transport/frame.h"

namespace perilink::fuzz {
namespace {

void Seal(sim::FlashImage& flash, size_t address, size_t width) {
  flash.bytes()[address + width] = sim::CheckOf(flash.bytes().subspan(address, width));
}

}  // namespace

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

void SealAll(sim::FlashImage& flash) {
  for (const sim::FlashField& field : sim::FlashFields())
    Seal(flash, field.address, field.width);
  for (size_t slot = 0; slot < sim::kSlotCount; ++slot) {
    const size_t shortcut = sim::ShortcutAddress(slot);
    if (flash[shortcut] <= PERILINK_SHORTCUT_MAX_EVENTS)
      Seal(flash, shortcut, Perilink_ShortcutSize(flash[shortcut]) - 1);
    const size_t macro = sim::MacroAddress(slot) + PERILINK_MACRO_COUNT_OFFSET;
    if (flash[macro] <= PERILINK_MACRO_MAX_EVENTS)
      Seal(flash, macro, 1 + PERILINK_MACRO_EVENT_SIZE * size_t{flash[macro]});
  }
}

}  // namespace perilink::fuzz
