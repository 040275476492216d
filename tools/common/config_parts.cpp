#include "common/config_parts.h"

#include <algorithm>
#include <cctype>

#include "common/config_members.h"
#include "perilink/protocol.h"
#include "perilink/protocol_data.h"

namespace perilink::tools {
namespace {

constexpr size_t kSlots = std::size(ProtocolData{}.shortcuts);
static_assert(kSlots == std::size(ProtocolData{}.macros));

// ---- Parts -------------------------------------------------------------------------------------

// "dpi_levels[2].color", and of records that are nothing but bytes "led_bar[6]".
std::string FieldName(const ConfigGroup& group, size_t entry, const ConfigField& field) {
  constexpr std::string_view kBytes = "bytes";
  const std::string record = group.count > 1 ? Indexed(group.name, entry) : std::string(group.name);
  const std::string_view name = field.name;
  if (name.substr(0, kBytes.size()) != kBytes) return Joined(record, field.name);
  return record + std::string(name.substr(kBytes.size()));
}

void AddFields(const ConfigGroup& group, std::vector<ConfigPart>& parts) {
  for (size_t entry = 0; entry < group.count; ++entry) {
    for (size_t i = 0; i < group.field_count; ++i) {
      const ConfigField& field = group.fields[i];
      const size_t offset = group.record_offset + entry * group.record_stride + field.record_offset;
      const size_t address = field.flash_address + entry * field.flash_stride;
      parts.push_back({FieldName(group, entry, field), PartKind::kField, offset, field.width,
                       address, 0, field.rule});
    }
  }
}

std::vector<ConfigPart> BuildParts() {
  std::vector<ConfigPart> parts;
  for (const ConfigGroup& group : kConfigGroups)
    AddFields(group, parts);
  for (size_t i = 0; i < kSlots; ++i) {
    parts.push_back({Indexed("shortcuts", i), PartKind::kShortcut,
                     offsetof(ProtocolData, shortcuts) + i * sizeof(ShortcutKey),
                     sizeof(ShortcutKey), Perilink_ShortcutSlotAddress(i), i, FieldRule::kPlain});
  }
  for (size_t i = 0; i < kSlots; ++i) {
    parts.push_back({Indexed("macros", i), PartKind::kMacro,
                     offsetof(ProtocolData, macros) + i * sizeof(MacroKey), sizeof(MacroKey),
                     Perilink_MacroSlotAddress(i), i, FieldRule::kPlain});
  }
  return parts;
}

std::vector<uint8_t> EncodedField(const uint8_t* value, const ConfigPart& part) {
  std::vector<uint8_t> bytes(value, value + part.size);
  if (part.rule == FieldRule::kNormalizedSwitch) bytes[0] = bytes[0] != 0 ? 1 : 0;
  bytes.push_back(Perilink_CheckByte(bytes.data(), bytes.size()));
  return bytes;
}

// ---- Updates -----------------------------------------------------------------------------------

bool IsEmptyCount(uint8_t count) {
  return count == 0 || count == PERILINK_ERASED;
}

bool ImageHolds(const DeviceConfig& device, const ConfigPart& part, const ProtocolData& record) {
  std::vector<uint8_t> bytes = EncodedPart(record, part);
  const uint8_t stored = device.image[part.address];
  const bool is_switch =
      part.rule == FieldRule::kSwitch || part.rule == FieldRule::kNormalizedSwitch;
  if (is_switch && bytes[0] != 0 && stored != 0) {
    bytes = {stored, Perilink_CheckByte(&stored, 1)};  // on is on, whatever stands for it
  }
  return std::equal(bytes.begin(), bytes.end(),
                    device.image.begin() + static_cast<ptrdiff_t>(part.address));
}

bool IsSound(const DeviceConfig& device, const ConfigPart& part) {
  switch (part.kind) {
    case PartKind::kShortcut:
      return device.record.shortcuts[part.slot].count != 0 ||
             IsEmptyCount(device.shortcut_counts[part.slot]);
    case PartKind::kMacro: {
      const uint8_t name_length = device.image[part.address];
      if (name_length > sizeof(MacroKey::name) && name_length != PERILINK_ERASED) return false;
      return device.record.macros[part.slot].count != 0 ||
             IsEmptyCount(device.macro_counts[part.slot]);
    }
    case PartKind::kField:
      break;
  }
  return ImageHolds(device, part, device.record);
}

bool MustWrite(const DeviceConfig& device, const ConfigPart& part, const ProtocolData& record) {
  if (part.kind == PartKind::kField) return !ImageHolds(device, part, record);
  return EncodedPart(device.record, part) != EncodedPart(record, part) || !IsSound(device, part);
}

// Makes the library write the part: its bytes in `previous` become other than those in `record`.
void MakeOther(const ConfigPart& part, const ProtocolData& record, ProtocolData& previous) {
  const uint8_t* const wanted = BytesOf(record) + part.offset;
  uint8_t* const target = BytesOf(previous) + part.offset;
  if (part.kind == PartKind::kField) {
    std::transform(wanted, wanted + part.size, target,
                   [](uint8_t byte) { return byte != 0 ? uint8_t{0} : uint8_t{1}; });
    return;
  }
  const auto other_count = [](uint8_t count) { return count != 0 ? uint8_t{0} : uint8_t{2}; };
  std::fill_n(target, part.size, uint8_t{0});
  if (part.kind == PartKind::kShortcut) {
    previous.shortcuts[part.slot].count = other_count(record.shortcuts[part.slot].count);
  } else {
    previous.macros[part.slot].count = other_count(record.macros[part.slot].count);
  }
}

// The image of a whole read from a device that holds the record.
std::vector<uint8_t> ReadBackImage(const ProtocolData& record) {
  std::vector<uint8_t> image(PERILINK_FLASH_IMAGE_SIZE, PERILINK_ERASED);
  for (const ConfigPart& part : ConfigParts()) {
    // A macro without a name is left out.
    if (part.kind == PartKind::kMacro && record.macros[part.slot].name_length == 0) continue;
    const std::vector<uint8_t> bytes = EncodedPart(record, part);
    std::copy(bytes.begin(), bytes.end(), image.begin() + static_cast<ptrdiff_t>(part.address));
  }
  return image;
}

// The bytes that members cover, which are all but the padding.
KnownBytes MemberBytes() {
  KnownBytes bytes;
  for (const Member& member : RecordMembers()) {
    for (size_t entry = 0; entry < member.count; ++entry) {
      const size_t at = member.offset + entry * member.size;
      if (member.members.empty()) {
        for (size_t i = 0; i < member.size; ++i)
          bytes.set(at + i);
      }
      for (const Member& part : member.members) {
        for (size_t i = 0; i < part.size * part.count; ++i)
          bytes.set(at + part.offset + i);
      }
    }
  }
  return bytes;
}

}  // namespace

const std::vector<ConfigPart>& ConfigParts() {
  static const std::vector<ConfigPart> parts = BuildParts();
  return parts;
}

KnownBytes PartBytes(const ConfigPart& part) {
  KnownBytes bytes;
  for (size_t i = 0; i < part.size; ++i)
    bytes.set(part.offset + i);
  return bytes;
}

std::vector<uint8_t> EncodedPart(const ProtocolData& record, const ConfigPart& part) {
  if (part.kind == PartKind::kField) return EncodedField(BytesOf(record) + part.offset, part);
  std::vector<uint8_t> slot(PERILINK_MACRO_SLOT_SIZE, PERILINK_ERASED);
  if (part.kind == PartKind::kShortcut) {
    ShortcutKey shortcut = record.shortcuts[part.slot];
    ShortcutKeyToBuffer(&shortcut, slot.data());
    slot.resize(size_t{shortcut.count} * 3 + 2);
  } else {
    const MacroKey& macro = record.macros[part.slot];
    MacroKeyToBuffer(&macro, slot.data());
    slot.resize(std::min<size_t>(macro.count, std::size(macro.events)) * 5 +
                PERILINK_MACRO_EVENTS_OFFSET + 1);
  }
  return slot;
}

void RequireHoldable(const ProtocolData& record) {
  ProtocolData read_back{};
  ProtocolDataParser(ReadBackImage(record).data(), &read_back);
  const std::vector<Difference> differences = ConfigDifferences(record, read_back);
  if (differences.empty()) return;
  const Difference& first = differences.front();
  if (first.field.rfind("macros[", 0) == 0) {
    throw ConfigError(first.field.substr(0, first.field.find('.')) +
                      ": a macro with events needs a name");
  }
  throw ConfigError(first.field + ": " + first.before.dump() + " would be read back as " +
                    first.after.dump() + ": it does not go with the other values");
}

DeviceConfig DeviceConfigFromImage(std::span<const uint8_t> image) {
  DeviceConfig device;
  device.image.assign(image.begin(), image.end());
  ProtocolDataParser(device.image.data(), &device.record);
  for (const ConfigPart& part : ConfigParts()) {
    const uint8_t* const slot = device.image.data() + part.address;
    if (part.kind == PartKind::kShortcut) device.shortcut_counts.push_back(slot[0]);
    if (part.kind == PartKind::kMacro) {
      device.macro_counts.push_back(slot[PERILINK_MACRO_COUNT_OFFSET]);
    }
  }
  return device;
}

NameList UnsoundParts(const DeviceConfig& device) {
  NameList names;
  for (const ConfigPart& part : ConfigParts()) {
    if (!IsSound(device, part)) names.Add(part.name);
  }
  return names;
}

KnownBytes SoundBytes(const DeviceConfig& device) {
  KnownBytes known = AllBytes();
  for (const ConfigPart& part : ConfigParts()) {
    if (!IsSound(device, part)) known &= ~PartBytes(part);
  }
  return known;
}

bool LooksLikeConfig(const DeviceConfig& device) {
  const std::vector<ConfigPart>& parts = ConfigParts();
  const auto settings_end = parts.begin() + kSettingCount;
  const auto taken = std::count_if(parts.begin(), settings_end, [&](const ConfigPart& part) {
    const auto value = device.image.begin() + static_cast<ptrdiff_t>(part.address);
    const bool erased = std::all_of(value, value + static_cast<ptrdiff_t>(part.size) + 1,
                                    [](uint8_t byte) { return byte == PERILINK_ERASED; });
    return erased || IsSound(device, part);
  });
  return 2 * taken > kSettingCount;
}

ConfigUpdate PlanUpdate(const DeviceConfig& device, const ProtocolData& record,
                        const std::function<bool(const ConfigPart&)>& may_write) {
  ConfigUpdate update;
  update.record = record;
  update.previous = record;
  for (const ConfigPart& part : ConfigParts()) {
    if (!may_write(part) || !MustWrite(device, part, record)) continue;
    MakeOther(part, record, update.previous);
    update.writes.push_back(part);
  }
  return update;
}

ConfigUpdate PlanLoad(const DeviceConfig& device, const ConfigFile& file) {
  const KnownBytes known = file.known | SoundBytes(device) | ~MemberBytes();
  ProtocolData record = device.record;
  for (size_t i = 0; i < sizeof record; ++i) {
    if (file.known[i]) BytesOf(record)[i] = BytesOf(file.record)[i];
  }
  return PlanUpdate(device, record, [&](const ConfigPart& part) {
    const KnownBytes bytes = PartBytes(part);
    return (bytes & file.known).any() && (bytes & ~known).none();
  });
}

void RequireKept(const ConfigUpdate& update) {
  for (const Member& member : RecordMembers()) {
    if (member.kind != MemberKind::kNumber) continue;
    const uint32_t value = ReadNumber(BytesOf(update.record) + member.offset, member.size);
    if (value >= member.kept_least && value <= member.kept_most) continue;
    for (const ConfigPart& part : update.writes) {
      if (part.offset != member.offset) continue;
      throw ConfigError(member.name + ": no device keeps " + std::to_string(value) + "; " +
                        std::to_string(member.kept_least) + " to " +
                        std::to_string(member.kept_most) + " are possible");
    }
  }
  RequireHoldable(update.record);
}

}  // namespace perilink::tools
