#include "sim/flash_image.h"

#include <algorithm>

#include "sim/report.h"

namespace perilink::sim {
namespace {

constexpr size_t kMaxShortcutEvents = 6;
constexpr size_t kMaxStoredShortcutEvents = 10;  // what a slot has room for
constexpr size_t kMaxMacroEvents = 70;
constexpr size_t kMaxMacroName = 30;
constexpr size_t kMacroCount = 31;  // position of the event count in a macro slot

// A run of equal fields: the table below is expanded once.
struct FieldRun {
  uint16_t address;
  uint8_t width;
  uint8_t count;
};

constexpr FieldRun kRuns[] = {
    {0, 1, 6},                  // report rate, level count, current level, three settings
    {12, 3, 8},                 // level values
    {44, 3, 8},                 // level colours
    {76, 1, 4},                 // indicator
    {96, 3, 16},                // key functions
    {160, 6, 1},  {167, 1, 1},  // LED bar
    {169, 1, 9},  {189, 1, 3}, {195, 4, 4}, {215, 1, 2}, {219, 3, 1}, {223, 1, 5},  // settings
    {6912, 5, 8},  // level extensions
};

std::vector<FlashField> ExpandRuns() {
  std::vector<FlashField> fields;
  for (const FieldRun& run : kRuns) {
    for (size_t i = 0; i < run.count; ++i) {
      fields.push_back({static_cast<uint16_t>(run.address + i * (run.width + 1u)), run.width});
    }
  }
  return fields;
}

uint8_t EventByte(const SlotEvent& event) {
  const uint8_t kind_bits = event.kind == 0 ? 0x80 : event.kind == 1 ? 0x40 : 0x00;
  return static_cast<uint8_t>(kind_bits | (event.code & 0x0F));
}

}  // namespace

std::span<const FlashField> FlashFields() {
  static const std::vector<FlashField> fields = ExpandRuns();
  return fields;
}

FlashImage::FlashImage() {
  bytes_.fill(0xFF);
}

FlashImage FlashImage::Default() {
  FlashImage image;
  for (const FlashField& field : FlashFields()) {
    std::array<uint8_t, 6> value{};
    for (size_t i = 0; i < field.width; ++i) {
      value[i] = static_cast<uint8_t>(0x11 + field.address * 5 + i * 29);
    }
    image.SetField(field.address, std::span(value).first(field.width));
  }
  image.SetField(0, {2});  // report rate
  image.SetField(2, {5});  // number of levels
  image.SetField(4, {1});  // current level
  for (uint8_t level = 0; level < 8; ++level) {
    const auto dots = static_cast<uint8_t>(0x08 << (level / 2));
    image.SetField(12u + 4u * level, {dots, dots, level});
    image.SetField(44u + 4u * level, {static_cast<uint8_t>(0x20 * level), 0x40, 0xC0});
  }
  image.SetField(76, {1});
  image.SetField(78, {0x60});
  image.SetField(80, {4});
  image.SetField(82, {2});
  image.SetField(160, {2, 0x10, 0x80, 0xF0, 5, 6});
  image.SetField(167, {2});
  for (uint8_t key = 0; key < 16; ++key)
    image.SetField(96u + 4u * key, {1, key, 0});
  return image;
}

FlashImage FlashImage::KeyboardDefault() {
  FlashImage image;
  for (size_t layer = 0; layer < 3; ++layer) {
    for (size_t i = 0; i < 512; i += 4) {
      const uint8_t key[] = {static_cast<uint8_t>(layer + 1), static_cast<uint8_t>(i / 4), 0};
      image.SetField(layer * 512 + i, key);
    }
  }
  return image;
}

void FlashImage::SetBytes(size_t address, std::span<const uint8_t> bytes) {
  if (address >= kFlashSize) return;
  const size_t count = std::min(bytes.size(), kFlashSize - address);
  std::copy_n(bytes.begin(), count, bytes_.begin() + static_cast<ptrdiff_t>(address));
}

void FlashImage::SetField(size_t address, std::span<const uint8_t> value) {
  SetBytes(address, value);
  const uint8_t check = CheckOf(value);
  SetBytes(address + value.size(), {&check, 1});
}

void FlashImage::SetField(size_t address, std::initializer_list<uint8_t> value) {
  SetField(address, std::span(value.begin(), value.size()));
}

void FlashImage::BreakField(size_t address, size_t width) {
  uint8_t& check = bytes_.at(address + width);
  check = static_cast<uint8_t>(~check);
}

void FlashImage::SetShortcut(size_t slot, std::span<const SlotEvent> events) {
  if (slot >= kSlotCount) return;
  ClearShortcut(slot);
  const size_t count = std::min(events.size(), kMaxStoredShortcutEvents);
  Bytes encoded(1 + 3 * count);
  encoded[0] = static_cast<uint8_t>(events.size());
  for (size_t i = 0; i < count; ++i) {
    encoded[1 + 3 * i] = EventByte(events[i]);
    encoded[2 + 3 * i] = events[i].key;
    encoded[3 + 3 * i] = events[i].key_high;
  }
  SetField(ShortcutAddress(slot), encoded);
}

void FlashImage::SetMacro(size_t slot, std::string_view name, std::span<const SlotEvent> events) {
  if (slot >= kSlotCount) return;
  ClearMacro(slot);
  name = name.substr(0, kMaxMacroName);
  const size_t address = MacroAddress(slot);
  bytes_[address] = static_cast<uint8_t>(name.size());
  std::copy(name.begin(), name.end(), bytes_.begin() + static_cast<ptrdiff_t>(address + 1));

  const size_t count = std::min(events.size(), kMaxMacroEvents);
  Bytes list(1 + 5 * count);
  list[0] = static_cast<uint8_t>(events.size());
  for (size_t i = 0; i < count; ++i) {
    list[1 + 5 * i] = EventByte(events[i]);
    list[2 + 5 * i] = events[i].key;
    list[3 + 5 * i] = events[i].key_high;
    list[4 + 5 * i] = static_cast<uint8_t>(events[i].delay_ms >> 8);
    list[5 + 5 * i] = static_cast<uint8_t>(events[i].delay_ms);
  }
  SetField(address + kMacroCount, list);
}

void FlashImage::ClearShortcut(size_t slot) {
  if (slot < kSlotCount) Erase(ShortcutAddress(slot), kShortcutSlotSize);
}

void FlashImage::ClearMacro(size_t slot) {
  if (slot < kSlotCount) Erase(MacroAddress(slot), kMacroSlotSize);
}

bool FlashImage::FieldValid(size_t address, size_t width) const {
  if (address + width >= kFlashSize) return false;
  return bytes_[address + width] == CheckOf(std::span(bytes_).subspan(address, width));
}

bool FlashImage::ShortcutValid(size_t slot) const {
  const size_t address = ShortcutAddress(slot);
  const size_t count = bytes_.at(address);
  if (count < 2 || count > kMaxShortcutEvents) return true;
  return FieldValid(address, 3 * count + 1);
}

bool FlashImage::MacroValid(size_t slot) const {
  const size_t address = MacroAddress(slot);
  const size_t name = bytes_.at(address);
  const size_t count = bytes_.at(address + kMacroCount);
  if (name > kMaxMacroName && name != 0xFF) return false;
  if (count == 0xFF) return true;
  return count <= kMaxMacroEvents && FieldValid(address + kMacroCount, 5 * count + 1);
}

std::vector<uint16_t> FlashImage::InvalidFields() const {
  std::vector<uint16_t> invalid;
  for (const FlashField& field : FlashFields()) {
    if (!FieldValid(field.address, field.width)) invalid.push_back(field.address);
  }
  for (size_t slot = 0; slot < kSlotCount; ++slot) {
    if (!ShortcutValid(slot)) invalid.push_back(static_cast<uint16_t>(ShortcutAddress(slot)));
    if (!MacroValid(slot)) invalid.push_back(static_cast<uint16_t>(MacroAddress(slot)));
  }
  return invalid;
}

void FlashImage::Erase(size_t address, size_t count) {
  std::fill_n(bytes_.begin() + static_cast<ptrdiff_t>(address), count, uint8_t{0xFF});
}

}  // namespace perilink::sim
