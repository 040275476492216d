#include "support/images.h"

#include <array>
#include <string>
#include <vector>

#include "perilink/config_layout.h"
#include "perilink/protocol_data.h"
#include "sim/report.h"

namespace perilink::fuzz {
namespace {

using sim::FlashImage;
using sim::SlotEvent;

std::vector<SlotEvent> Events(size_t count) {
  std::vector<SlotEvent> events;
  for (size_t i = 0; i < count; ++i) {
    const auto number = static_cast<uint8_t>(i);
    events.push_back({static_cast<uint8_t>(i % 3), static_cast<uint8_t>(i % 16), number, 1,
                      static_cast<uint16_t>(300 * i)});
  }
  return events;
}

FlashImage FullImage() {
  FlashImage image = FlashImage::Default();
  for (size_t slot = 0; slot < sim::kSlotCount; ++slot) {
    image.SetShortcut(slot, Events(slot % 8));
    image.SetMacro(slot, std::string(slot * 2, 'a'), Events(slot * 5 % 71));
  }
  return image;
}

FlashImage SmallImage() {
  FlashImage image = FlashImage::Default();
  image.SetShortcut(0, Events(2));
  image.SetMacro(0, "Copy", Events(2));
  return image;
}

FlashImage BrokenImage() {
  FlashImage image = FullImage();
  for (const sim::FlashField& field : sim::FlashFields())
    image.BreakField(field.address, field.width);
  return image;
}

void Seal(FlashImage& image, size_t address, size_t width) {
  image.bytes()[address + width] = sim::CheckOf(image.bytes().subspan(address, width));
}

}  // namespace

FlashImage TakeImage(Input& input) {
  static const auto& starts = *new std::array<FlashImage, 6>{
      FlashImage::Default(), FlashImage(),  SmallImage(),
      FullImage(),           BrokenImage(), FlashImage::KeyboardDefault()};
  const uint8_t head = input.Byte();
  FlashImage image = starts[(head & 7) % starts.size()];
  for (int changes = head >> 4; changes > 0; --changes) {
    const size_t address = input.Below(sim::kConfigurationSize);
    image.SetBytes(address, input.Bytes(input.Byte()));
  }
  if ((head & 8) != 0) SealAll(image);
  return image;
}

const FlashImage& DefaultImage() {
  static const auto& image = *new FlashImage(FlashImage::Default());
  return image;
}

void TakeChanges(Input& input, ProtocolData& record) {
  while (!input.Empty()) {
    const size_t offset = input.Below(sizeof(record));
    const auto bytes = input.Bytes(std::min<size_t>(input.Byte(), sizeof(record) - offset));
    std::copy(bytes.begin(), bytes.end(), &record.report_rate + offset);
  }
}

void SealAll(FlashImage& image) {
  for (const sim::FlashField& field : sim::FlashFields())
    Seal(image, field.address, field.width);
  for (size_t slot = 0; slot < sim::kSlotCount; ++slot) {
    const size_t shortcut = sim::ShortcutAddress(slot);
    if (image[shortcut] <= PERILINK_SHORTCUT_MAX_EVENTS)
      Seal(image, shortcut, Perilink_ShortcutSize(image[shortcut]) - 1);
    const size_t macro = sim::MacroAddress(slot) + PERILINK_MACRO_COUNT_OFFSET;
    if (image[macro] <= PERILINK_MACRO_MAX_EVENTS)
      Seal(image, macro, 1 + PERILINK_MACRO_EVENT_SIZE * size_t{image[macro]});
  }
}

ExactCopy Configuration(const FlashImage& image) {
  return ExactCopy(image.bytes().first<PERILINK_FLASH_IMAGE_SIZE>());
}

ProtocolData Parse(const uint8_t* image, ProtocolData record) {
  ProtocolDataParser(image, &record);
  return record;
}

}  // namespace perilink::fuzz
