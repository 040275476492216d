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

void LayOver(uint8_t* image, const CommandFrame& write) {
  std::memcpy(image + FrameAddress(write), write.data, write.length & 0x7F);
}

// Calls it with each field's address, offset in the record, and width.
template <typename Visit>
void ForEachField(Visit visit) {
  for (const ConfigGroup& group : kConfigGroups)
    for (size_t entry = 0; entry < group.count; ++entry)
      for (const ConfigField& field : std::span(group.fields, group.field_count))
        visit(field.flash_address + entry * field.flash_stride,
              group.record_offset + entry * group.record_stride + field.record_offset,
              size_t{field.width});
}

// What a host reads of a device that held the record and has taken the writes.
std::unique_ptr<ProtocolData> ReadBack(ProtocolData record,
                                       std::span<const CommandFrame> writes = {}) {
  sim::FlashImage flash;
  const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
  ForEachField([&](size_t address, size_t offset, size_t width) {
    flash.SetField(address, std::span(bytes + offset, width));
  });
  for (size_t slot = 0; slot < sim::kSlotCount; ++slot) {
    ShortcutKeyToBuffer(&record.shortcuts[slot], &flash.bytes()[sim::ShortcutAddress(slot)]);
    MacroKeyToBuffer(&record.macros[slot], &flash.bytes()[sim::MacroAddress(slot)]);
  }
  for (const CommandFrame& write : writes)
    LayOver(flash.bytes().data(), write);
  auto read = std::make_unique<ProtocolData>();
  ProtocolDataParser(flash.bytes().data(), read.get());
  return read;
}

bool Same(const ProtocolData& a, const ProtocolData& b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

// A byte of a slot that has changed while it was read: one that the device held, one that nobody
// has read, or of a macro one that its normal form may have changed: a count, a check, a code.
bool MayBeRead(Device& device, Moment since, size_t address, size_t in_slot, uint8_t byte) {
  const bool in_macro = address >= sim::MacroAddress(0);
  return byte == kErased || device.Held(since, address, byte) ||
         (in_macro && (in_slot == 0 || in_slot == 31 || (in_slot >= 32 && in_slot % 5 == 2)));
}

// `decode` gives a record that begins with its length. Of an empty slot no more is read.
template <typename Slot>
void CheckSlots(Device& device, const FullRead& read, const uint8_t* image, size_t begin,
                size_t size, void (*decode)(const uint8_t*, Slot*)) {
  for (size_t at = begin; at < begin + sim::kSlotCount * size; at += size) {
    if (!device.Unchanged(read.since(), at, size)) {
      for (size_t i = 0; i < size; ++i)
        if (!MayBeRead(device, read.of(at + i), at + i, i, image[at + i]))
          Broken("a slot of an image holds what the device never held");
      continue;
    }
    Slot held{};
    Slot seen{};
    decode(&device.mouse.flash().bytes()[at], &held);
    decode(image + at, &seen);
    const bool empty = *reinterpret_cast<const uint8_t*>(&held) == 0;
    if (std::memcmp(&held, &seen, empty ? 1 : sizeof(held)) != 0)
      Broken("a shortcut or a macro of an image is another one");
  }
}

}  // namespace

// ---- Images -----------------------------------------------------------------------------------

void FullRead::Take(Moment moment, size_t address, size_t length, bool written) {
  since_ = std::min(since_, moment);
  for (size_t at = address; at < std::min(address + length, of_.size()); ++at)
    of_[at] = InSlots(at) && !written ? std::min(of_[at], moment) : moment;
}

void ConfigModel::CheckImage(Device& device, const FullRead& read, const uint8_t* image) {
  for (size_t at = 0; at < PERILINK_FLASH_IMAGE_SIZE; ++at) {
    if (FullRead::InSlots(at)) continue;
    const bool unread = at >= PERILINK_SETTINGS_BLOCK_SIZE && at < PERILINK_SHORTCUT_ADDRESS;
    if (image[at] == (unread ? kErased : device.At(read.of(at), at))) continue;
    Note("byte", at, image[at]);
    Broken("an image holds another byte");
  }
  CheckSlots(device, read, image, sim::ShortcutAddress(0), sim::kShortcutSlotSize,
             BufferToShortcutKey);
  CheckSlots(device, read, image, sim::MacroAddress(0), sim::kMacroSlotSize, BufferToMacroKey);
}

void ConfigModel::OnImage(const uint8_t* image, std::span<const CommandFrame> waiting) {
  std::array<uint8_t, PERILINK_FLASH_IMAGE_SIZE> believed;
  std::copy_n(image, believed.size(), believed.begin());
  for (const CommandFrame& write : waiting)
    LayOver(believed.data(), write);
  ProtocolDataParser(believed.data(), &record_);
  Check();
}

// ---- The record -------------------------------------------------------------------------------

ConfigModel::ConfigModel() {
  SetDllProtocolData(&record_);
  // From now on updates are taken.
  ProtocolData parsed;
  ProtocolDataParser(sim::FlashImage().bytes().data(), &parsed);
}

void ConfigModel::OnReadAnswer(uint16_t address, const uint8_t* data) {
  // Where a read of settings begins, and how far it goes.
  static constexpr std::pair<size_t, size_t> kReads[] = {{0, 2}, {4, 2}, {76, 8}, {160, 9}};
  for (const auto& [begin, length] : kReads) {
    if (begin != address) continue;
    ForEachField([&, from = begin, end = begin + length](size_t at, size_t offset, size_t width) {
      if (at < from || at >= end) return;
      const std::span value(data + (at - from), width);
      if (data[at - from + width] == sim::CheckOf(value))
        std::ranges::copy(value, reinterpret_cast<uint8_t*>(&record_) + offset);
    });
  }
}

void ConfigModel::Check() {
  StoredProtocolData::Instance().With([this](const ProtocolData& stored) {
    if (Same(stored, record_)) return;
    if (!Same(*ReadBack(stored), *ReadBack(record_)))
      Broken("the library's own record is not what was read and updated");
    record_ = stored;  // what no part of the memory stands for is its own
  });
}

void ConfigModel::CheckUpdate(const ProtocolData& previous, const ProtocolData& record,
                              std::span<const CommandFrame> writes) {
  if (!Same(*ReadBack(previous, writes), *ReadBack(record)))
    Broken("an update's writes don't make the device hold its record");
}

}  // namespace perilink::testing
