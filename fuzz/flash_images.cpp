// Configuration images: parsers, converters, compare and update.
//
// An input is what a device holds now, an image of 6960 bytes, then the image that it shall hold,
// and then changes of the record that a host makes: two bytes of offset, one of count, the bytes.
// A short input ends in erased memory.
#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <vector>

#include "perilink/config_layout.h"
#include "perilink/protocol_data.h"
#include "protocol/compare.h"
#include "protocol/key_events.h"
#include "sim/flash_image.h"
#include "sim/report.h"
#include "support/input.h"
#include "support/records.h"
#include "support/require.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

namespace perilink::fuzz {
namespace {

constexpr size_t kImage = PERILINK_FLASH_IMAGE_SIZE;
constexpr uint8_t kErased = 0xFF;

uint8_t* BytesOf(ProtocolData& record) {
  return &record.report_rate;
}

ProtocolData Parse(const uint8_t* image, ProtocolData record = {}) {
  ProtocolDataParser(image, &record);
  return record;
}

// ---- Parsers -----------------------------------------------------------------------------------

bool IsSwitch(const ConfigField& field) {
  return field.rule == FieldRule::kSwitch || field.rule == FieldRule::kNormalizedSwitch;
}

// What a field becomes by the public table: its value, its fallback, or what it was.
void RequireField(const uint8_t* stored, const ConfigField& field, const uint8_t* before,
                  const uint8_t* after, uint8_t level_count) {
  bool accepted = sim::CheckOf({stored, field.width}) == stored[field.width];
  if (field.rule == FieldRule::kBelowLevelCount) accepted = accepted && *stored < level_count;
  const uint8_t* wanted = accepted ? stored : field.keeps ? before : field.fallback.data();
  if (IsSwitch(field)) {
    Require(*after == (*wanted != 0 ? 1 : 0), "a switch is taken as 0 or 1");
  } else {
    Require(std::memcmp(after, wanted, field.width) == 0, "a field is what its table says");
  }
}

void RequireFields(const uint8_t* image, ProtocolData before, ProtocolData after) {
  for (const ConfigGroup& group : kConfigGroups) {
    for (size_t i = 0; i < size_t{group.count} * group.field_count; ++i) {
      const ConfigField& field = group.fields[i % group.field_count];
      const size_t entry = i / group.field_count;
      const size_t at = group.record_offset + entry * group.record_stride + field.record_offset;
      RequireField(image + field.flash_address + entry * field.flash_stride, field,
                   BytesOf(before) + at, BytesOf(after) + at, after.dpi_level_count);
    }
  }
}

void CheckParsers(const uint8_t* image) {
  ProtocolData filled;
  std::memset(&filled, 0xA5, sizeof(filled));
  for (const ProtocolData& before : {ProtocolData{}, filled}) {
    const ProtocolData parsed = Parse(image, before);
    RequireFields(image, before, parsed);
    RequireInRange(Canonical(parsed));
    Require(Same(Parse(image, parsed), parsed), "a second parse changes nothing");

    const ExactCopy block({image, PERILINK_SETTINGS_BLOCK_SIZE});
    ProtocolData settings = before;
    MouseConfigParser(block.data(), &settings);
    ProtocolData expected = before;
    const ConfigField& last = kSettings.back();
    std::copy_n(&parsed.report_rate, last.record_offset + last.width, BytesOf(expected));
    Require(Same(settings, expected), "the settings are those of the whole parse, and no more");
  }
  RequireInRange(Parse(image));
}

// ---- Converters --------------------------------------------------------------------------------

void CheckShortcut(const uint8_t* source) {
  const ExactCopy slot({source, PERILINK_SHORTCUT_SLOT_SIZE});
  ShortcutKey decoded{};
  BufferToShortcutKey(slot.data(), &decoded);
  ExactCopy encoded(slot.span());
  ShortcutKey again = decoded;
  ShortcutKeyToBuffer(&again, encoded.data());
  Require(std::memcmp(&again, &decoded, sizeof(again)) == 0, "encoding leaves a shortcut alone");
  BufferToShortcutKey(encoded.data(), &again);
  Require(std::memcmp(&again, &decoded, sizeof(again)) == 0, "a shortcut survives its slot");
}

void CheckMacro(const uint8_t* source) {
  const ExactCopy slot({source, PERILINK_MACRO_SLOT_SIZE});
  MacroKey decoded{};
  BufferToMacroKey(slot.data(), &decoded);
  ExactCopy encoded(slot.span());
  MacroKeyToBuffer(&decoded, encoded.data());
  MacroKey again{};
  BufferToMacroKey(encoded.data(), &again);
  Require(std::memcmp(&again, &decoded, sizeof(again)) == 0, "a macro survives its slot");
}

void CheckConverters(const uint8_t* image) {
  const ProtocolData parsed = Parse(image);
  DPILed led{};
  BufferToDPILed(ExactCopy({image + 76, 8}).data(), &led);
  Require(std::memcmp(&led, &parsed.dpi_led, sizeof(led)) == 0, "one indicator, parsed two ways");
  LedBar bar{};
  BufferToLedBar(ExactCopy({image + 160, 9}).data(), &bar);
  Require(std::memcmp(&bar, &parsed.led_bar, sizeof(bar)) == 0, "one bar, parsed two ways");
  DPILevel level{};
  BufferToDPIColor(ExactCopy({image + 44, 4}).data(), &level);
  Require(std::memcmp(&level.color, &parsed.dpi_levels[0].color, sizeof(level.color)) == 0,
          "one colour, parsed two ways");
  KeyFun key{};
  BufferToKeyFunMap(ExactCopy({image + 96, 4}).data(), &key);
  Require(std::memcmp(&key, &parsed.key_functions[0], sizeof(key)) == 0, "one key, two ways");
  for (size_t i = 0; i < sim::kSlotCount; ++i) {
    CheckShortcut(image + sim::ShortcutAddress(i));
    CheckMacro(image + sim::MacroAddress(i));
  }
}

// ---- Compare and update ------------------------------------------------------------------------

// Writes what an update wants written into the image, each byte at most once.
void Apply(const std::vector<FlashWrite>& writes, std::span<uint8_t> image) {
  std::array<bool, kImage> written{};
  for (const FlashWrite& write : writes) {
    Require(write.length >= 2 && write.length <= write.data.size(), "a write is 2 to 383 bytes");
    Require(size_t{write.address} + write.length <= image.size(), "a write lies in the image");
    for (size_t i = 0; i < write.length; ++i) {
      Require(!written[write.address + i], "no byte is written twice");
      written[write.address + i] = true;
      image[write.address + i] = write.data[i];
    }
  }
}

// The level that a device holds and a parse did not take may count once there are more levels.
bool LevelIsLeftOver(const uint8_t* image, const ProtocolData& held, const ProtocolData& wanted) {
  return held.current_dpi_level == wanted.current_dpi_level && image[4] != held.current_dpi_level;
}

// A device that gets the writes holds the record.
void CheckUpdate(const uint8_t* held_image, const uint8_t* wanted_image) {
  const ProtocolData held = Parse(held_image);
  const ProtocolData wanted = Parse(wanted_image);
  ProtocolData record = wanted;
  ProtocolData previous = held;
  const std::vector<FlashWrite> writes = CompareProtocolData(record, previous);
  Require(Same(record, wanted), "a compare leaves a sound record alone");
  Require(Same(Canonical(previous), Canonical(wanted)), "the previous record takes the new values");

  ExactCopy image({held_image, kImage});
  Apply(writes, {image.data(), kImage});
  ProtocolData read_back = Canonical(Parse(image.data(), held));
  if (LevelIsLeftOver(held_image, held, wanted)) {
    read_back.current_dpi_level = wanted.current_dpi_level;
  }
  Require(Same(read_back, Canonical(wanted)), "a device that was updated holds the record");
}

// Whatever a host makes of its record.
void CheckHostsRecord(const uint8_t* held_image, const uint8_t* wanted_image, Input& input) {
  ProtocolData record = Parse(wanted_image);
  while (!input.Empty()) {
    const size_t offset = input.Below(sizeof(record));
    const auto bytes = input.Bytes(std::min<size_t>(input.Byte(), sizeof(record) - offset));
    std::copy(bytes.begin(), bytes.end(), BytesOf(record) + offset);
  }
  ProtocolData previous = Parse(held_image);
  ExactCopy image({held_image, kImage});
  Apply(CompareProtocolData(record, previous), {image.data(), kImage});
  Require(CompareProtocolData(record, previous).empty(), "a second compare finds nothing to write");

  // The other way round, from what no device can hold.
  ProtocolData back = Parse(held_image);
  Apply(CompareProtocolData(back, record), {image.data(), kImage});
  Require(CompareProtocolData(back, record).empty(), "nor one against what the host had");
  for (ShortcutKey& shortcut : record.shortcuts) {
    ExactCopy slot({}, PERILINK_SHORTCUT_SLOT_SIZE);
    ShortcutKeyToBuffer(&shortcut, slot.data());
  }
  for (const MacroKey& macro : record.macros) {
    ExactCopy slot({}, PERILINK_MACRO_SLOT_SIZE);
    MacroKeyToBuffer(&macro, slot.data());
  }
}

// ---- Mutation ----------------------------------------------------------------------------------

void Seal(std::span<uint8_t> image, size_t address, size_t width) {
  if (address + width >= image.size()) return;
  image[address + width] = sim::CheckOf(image.subspan(address, width));
}

// Most changes break a check byte. This one repairs some.
void SealSome(std::span<uint8_t> image, unsigned seed) {
  const auto fields = sim::FlashFields();
  for (size_t i = seed % 7; i < fields.size(); i += 1 + seed % 3)
    Seal(image, fields[i].address, fields[i].width);
  for (size_t slot = 0; slot < sim::kSlotCount; ++slot) {
    const size_t shortcut = sim::ShortcutAddress(slot);
    if (shortcut < image.size() && image[shortcut] <= PERILINK_SHORTCUT_MAX_EVENTS)
      Seal(image, shortcut, Perilink_ShortcutSize(image[shortcut]) - 1);
    const size_t macro = sim::MacroAddress(slot) + PERILINK_MACRO_COUNT_OFFSET;
    if (macro < image.size() && image[macro] <= PERILINK_MACRO_MAX_EVENTS)
      Seal(image, macro, 1 + PERILINK_MACRO_EVENT_SIZE * size_t{image[macro]});
  }
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size,
                                          unsigned seed) {
  using namespace perilink::fuzz;
  size = LLVMFuzzerMutate(data, size, max_size);
  const std::span<uint8_t> bytes(data, size);
  if ((seed & 1) != 0) SealSome(bytes.first(std::min(size, kImage)), seed >> 2);
  if ((seed & 2) != 0 && size > kImage) SealSome(bytes.subspan(kImage), seed >> 2);
  return size;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  Input input(data, size);
  const ExactCopy held(input.Bytes(kImage), kImage, kErased);
  const ExactCopy wanted(input.Bytes(kImage), kImage, kErased);
  CheckParsers(held.data());
  CheckConverters(held.data());
  CheckUpdate(held.data(), wanted.data());
  CheckUpdate(wanted.data(), held.data());
  CheckHostsRecord(held.data(), wanted.data(), input);
  return 0;
}
