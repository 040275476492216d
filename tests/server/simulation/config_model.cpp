#include "config_model.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include "note.h"
#include "perilink/config_layout.h"
#include "perilink/protocol_data.h"
#include "protocol/stored.h"
#include "transport/frame.h"

namespace perilink::testing {
namespace {

constexpr uint8_t kErased = 0xFF;
using Image = std::array<uint8_t, PERILINK_FLASH_IMAGE_SIZE>;

void LayOver(uint8_t* image, const CommandFrame& write) {
  std::memcpy(image + FrameAddress(write), write.data, write.length & 0x7F);
}

// As the device holds the record.
std::unique_ptr<sim::FlashImage> Encode(ProtocolData record) {
  auto flash = std::make_unique<sim::FlashImage>();
  const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
  for (const ConfigGroup& group : kConfigGroups)
    for (size_t entry = 0; entry < group.count; ++entry)
      for (const ConfigField& field : std::span(group.fields, group.field_count))
        flash->SetField(field.flash_address + entry * field.flash_stride,
                        std::span(bytes + group.record_offset + entry * group.record_stride +
                                      field.record_offset,
                                  field.width));
  for (size_t slot = 0; slot < sim::kSlotCount; ++slot) {
    ShortcutKeyToBuffer(&record.shortcuts[slot], &flash->bytes()[sim::ShortcutAddress(slot)]);
    MacroKeyToBuffer(&record.macros[slot], &flash->bytes()[sim::MacroAddress(slot)]);
  }
  return flash;
}

std::unique_ptr<ProtocolData> Parse(const uint8_t* image) {
  auto record = std::make_unique<ProtocolData>();
  ProtocolDataParser(image, record.get());
  return record;
}

// ---- Slots of an image ------------------------------------------------------------------------

// What is read of a slot that nobody touches: `held` is the device's, `read` the image's. Beyond it
// the image is erased, or laid over with what somebody has written once more.
void CheckSlot(const uint8_t* held, const uint8_t* read, const uint8_t* expected, size_t length,
               size_t size) {
  for (size_t i = 0; i < size; ++i) {
    const bool right = read[i] == held[i] || read[i] == (i < length ? expected[i] : kErased);
    if (!right) Broken("a slot of an image is wrong");
  }
}

void CheckShortcut(const uint8_t* held, const uint8_t* read) {
  const uint8_t count = *held;
  const bool valid = count >= 2 && count <= 6 &&
                     held[3 * count + 1] == sim::CheckOf(std::span(held, 3u * count + 1));
  CheckSlot(held, read, held, valid ? 3u * count + 2 : 0, sim::kShortcutSlotSize);
  if (valid && std::memcmp(held, read, 3u * count + 2) != 0) Broken("a shortcut is missing");
}

void CheckMacro(const uint8_t* held, const uint8_t* read) {
  const uint8_t name = *held;
  MacroKey macro{};
  MacroKey read_macro{};
  uint8_t expected[sim::kMacroSlotSize];
  std::fill(std::begin(expected), std::end(expected), kErased);
  const bool named = name >= 1 && name <= 30;
  if (named) {
    BufferToMacroKey(held, &macro);
    MacroKeyToBuffer(&macro, expected);
  }
  CheckSlot(held, read, expected, named ? 33 + 5u * macro.count : 0, sim::kMacroSlotSize);
  BufferToMacroKey(read, &read_macro);
  if (named && std::memcmp(&macro, &read_macro, sizeof(macro)) != 0) Broken("a macro is missing");
}

// A byte of a slot that has changed while it was read: one that the device held, one that nobody
// has read, or of a macro that was torn and is stored without its events.
bool MayBeRead(Device& device, Moment since, size_t address, size_t in_slot, uint8_t byte) {
  if (byte == kErased || device.Held(since, address, byte)) return true;
  if (address < sim::MacroAddress(0)) return false;
  if (in_slot == 0 || in_slot == 31) return byte == 0;
  if (in_slot == 32 && byte == sim::CheckOf(std::span<const uint8_t>())) return true;
  return in_slot >= 32 && in_slot % 5 == 2 &&  // an event's head, normalised
         device.HeldSince(since, address, [byte](uint8_t held) {
           return byte == ((held & 0xC0) == 0xC0 ? held & 0x0F : held & 0xCF);
         });
}

template <typename CheckWhole>
void CheckSlots(Device& device, const FullRead& read, const uint8_t* image, size_t begin,
                size_t size, CheckWhole check) {
  for (size_t at = begin; at < begin + sim::kSlotCount * size; at += size) {
    if (device.Unchanged(read.since(), at, size)) {
      check(&device.mouse.flash().bytes()[at], image + at);
      continue;
    }
    for (size_t i = 0; i < size; ++i)
      if (!MayBeRead(device, read.of(at + i), at + i, i, image[at + i])) {
        Note("byte", at + i, image[at + i]);
        Broken("a slot of an image holds what the device never held");
      }
  }
}

}  // namespace

bool SameSlot(MacroKey a, MacroKey b) {
  std::array<uint8_t, sim::kMacroSlotSize> slots[2]{};
  MacroKeyToBuffer(&a, slots[0].data());
  MacroKeyToBuffer(&b, slots[1].data());
  return slots[0] == slots[1];
}

// ---- Images -----------------------------------------------------------------------------------

void FullRead::OnAnswer(Moment moment, size_t address, size_t length) {
  since_ = std::min(since_, moment);
  for (size_t at = address; at < std::min(address + length, of_.size()); ++at)
    of_[at] = InSlots(at) ? std::min(of_[at], moment) : moment;
}

void FullRead::OnAcknowledged(Moment moment, size_t address, size_t length) {
  since_ = std::min(since_, moment);
  for (size_t at = address; at < std::min(address + length, of_.size()); ++at)
    of_[at] = moment;
}

void ConfigModel::CheckImage(Device& device, const FullRead& read, const uint8_t* image) {
  const auto check = [&](size_t begin, size_t end) {
    for (size_t at = begin; at < end; ++at)
      if (image[at] != device.At(read.of(at), at)) {
        Note("byte", at, image[at]);
        Note("must be", device.At(read.of(at), at), read.of(at));
        Broken("an image holds another byte");
      }
  };
  check(0, PERILINK_SETTINGS_BLOCK_SIZE);
  check(6912, PERILINK_FLASH_IMAGE_SIZE);
  CheckSlots(device, read, image, sim::ShortcutAddress(0), sim::kShortcutSlotSize, CheckShortcut);
  CheckSlots(device, read, image, sim::MacroAddress(0), sim::kMacroSlotSize, CheckMacro);
  if (std::any_of(image + PERILINK_SETTINGS_BLOCK_SIZE, image + sim::ShortcutAddress(0),
                  [](uint8_t byte) { return byte != kErased; }))
    Broken("what nobody reads is not erased");
}

void ConfigModel::OnImage(const uint8_t* image, std::span<const CommandFrame> waiting) {
  Image believed;
  std::copy_n(image, believed.size(), believed.begin());
  for (const CommandFrame& write : waiting)
    LayOver(believed.data(), write);
  ProtocolDataParser(believed.data(), &record_);
  Check();
}

// ---- The record -------------------------------------------------------------------------------

ConfigModel::ConfigModel() {
  SetDllProtocolData(&record_);
  Parse(sim::FlashImage().bytes().data());  // from now on updates are taken
}

void ConfigModel::OnReadAnswer(uint16_t address, const uint8_t* data) {
  struct Field {
    uint16_t address;
    uint8_t at;
    uint8_t width;
    size_t offset;
  };
  static constexpr Field kFields[] = {
      {0, 0, 1, offsetof(ProtocolData, report_rate)},
      {4, 0, 1, offsetof(ProtocolData, current_dpi_level)},
      {76, 0, 1, offsetof(ProtocolData, dpi_led)},
      {76, 2, 1, offsetof(ProtocolData, dpi_led) + 1},
      {76, 4, 1, offsetof(ProtocolData, dpi_led) + 2},
      {76, 6, 1, offsetof(ProtocolData, dpi_led) + 3},
      {160, 0, 6, offsetof(ProtocolData, led_bar)},
      {160, 7, 1, offsetof(ProtocolData, led_bar) + 6},
  };
  for (const Field& field : kFields) {
    const std::span value(data + field.at, field.width);
    if (field.address == address && data[field.at + field.width] == sim::CheckOf(value))
      std::copy(value.begin(), value.end(), reinterpret_cast<uint8_t*>(&record_) + field.offset);
  }
}

void ConfigModel::OnUpdate(const ProtocolData& record) {
  const ProtocolData before = std::exchange(record_, record);
  // What no part of the device's memory stands for stays as it was, but the events of a shortcut
  // that was empty before.
  for (size_t slot = 0; slot < sim::kSlotCount; ++slot) {
    ShortcutKey& shortcut = record_.shortcuts[slot];
    const ShortcutKey& old_shortcut = before.shortcuts[slot];
    for (size_t i = shortcut.count; i < std::size(shortcut.events); ++i)
      shortcut.events[i] = old_shortcut.count == 0 ? KeyEvent{} : old_shortcut.events[i];
    MacroKey& macro = record_.macros[slot];
    if (SameSlot(before.macros[slot], macro)) macro = before.macros[slot];
    std::copy(before.macros[slot].name + macro.name_length, std::end(before.macros[slot].name),
              macro.name + macro.name_length);
  }
}

void ConfigModel::Check() const {
  const bool same = StoredProtocolData::Instance().With([this](const ProtocolData& stored) {
    return std::memcmp(&stored, &record_, sizeof(stored)) == 0;
  });
  if (!same) Broken("the library's own record is not what was read and updated");
}

void ConfigModel::CheckUpdate(const ProtocolData& previous, const ProtocolData& record,
                              std::span<const CommandFrame> writes) {
  const auto flash = Encode(previous);
  for (const CommandFrame& write : writes)
    LayOver(flash->bytes().data(), write);
  const auto made = Parse(flash->bytes().data());
  const auto wanted = Parse(Encode(record)->bytes().data());
  if (std::memcmp(made.get(), wanted.get(), sizeof(ProtocolData)) != 0)
    Broken("an update's writes don't make the device hold its record");
}

}  // namespace perilink::testing
