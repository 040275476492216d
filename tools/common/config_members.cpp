#include "common/config_members.h"

#include <algorithm>
#include <string_view>

#include "common/escaped_text.h"
#include "perilink/config_layout.h"

namespace perilink::tools {
namespace {

Member Number(std::string name, size_t offset, size_t size, uint32_t most) {
  return {std::move(name), MemberKind::kNumber, offset, size, 1, most, false, false, {}};
}

Member Bytes(std::string name, size_t offset, size_t count) {
  return {std::move(name), MemberKind::kBytes, offset, 1, count, 0xFF, false, false, {}};
}

Member Unused(std::string name, size_t offset, size_t count) {
  Member member = Bytes(std::move(name), offset, count);
  member.unused = true;
  return member;
}

Member Records(std::string name, size_t offset, size_t size, size_t count,
               std::vector<Member> members) {
  return {std::move(name), MemberKind::kRecords, offset, size, count, 0xFF, false,
          false,           std::move(members)};
}

// Records that are nothing but `size` bytes.
Member ByteRecords(std::string name, size_t offset, size_t size, size_t count) {
  return Records(std::move(name), offset, size, count, {Bytes("", 0, size)});
}

Member EventCount(size_t offset, uint32_t most) {
  Member member = Number("count", offset, 1, most);
  member.counts_events = true;
  return member;
}

Member Events(size_t offset, size_t count, uint32_t most_delay) {
  Member member = Records("events", offset, sizeof(KeyEvent), count,
                          {Number("kind", offsetof(KeyEvent, kind), 1, 2),
                           Number("code", offsetof(KeyEvent, code), 1, 0x0F),
                           Bytes("keys", offsetof(KeyEvent, keys), 2),
                           Number("delay", offsetof(KeyEvent, delay), 4, most_delay)});
  member.kind = MemberKind::kEvents;
  return member;
}

Member Setting(const ConfigField& field) {
  if (field.width == 3) return Bytes(field.name, field.record_offset, 3);
  const bool is_switch =
      field.rule == FieldRule::kSwitch || field.rule == FieldRule::kNormalizedSwitch;
  const uint32_t most = field.width == 4 ? 0xFFFFFFFF : is_switch ? 1 : 0xFF;
  return Number(field.name, field.record_offset, field.width, most);
}

Member DpiLevels() {
  return Records(
      "dpi_levels", offsetof(ProtocolData, dpi_levels), sizeof(DPILevel), 8,
      {Bytes("value", offsetof(DPILevel, value), 3), Bytes("color", offsetof(DPILevel, color), 3),
       Number("extension1", offsetof(DPILevel, extension1), 2, 0xFFFF),
       Number("extension2", offsetof(DPILevel, extension2), 2, 0xFFFF),
       Number("extension_byte", offsetof(DPILevel, extension_byte), 1, 0xFF),
       Unused("unused", offsetof(DPILevel, unused), 1)});
}

Member Shortcuts() {
  return Records("shortcuts", offsetof(ProtocolData, shortcuts), sizeof(ShortcutKey), 16,
                 {EventCount(offsetof(ShortcutKey, count), 6),
                  Unused("unused", offsetof(ShortcutKey, unused), 3),
                  Events(offsetof(ShortcutKey, events), 6, 0)});
}

Member Macros() {
  Member name = Bytes("name", offsetof(MacroKey, name), sizeof(MacroKey::name));
  name.kind = MemberKind::kText;
  return Records("macros", offsetof(ProtocolData, macros), sizeof(MacroKey), 16,
                 {Number("name_length", offsetof(MacroKey, name_length), 1, sizeof(MacroKey::name)),
                  std::move(name), EventCount(offsetof(MacroKey, count), 70),
                  Events(offsetof(MacroKey, events), 70, 0xFFFF)});
}

std::vector<Member> BuildRecordMembers() {
  std::vector<Member> members;
  for (const ConfigField& field : kSettings)
    members.push_back(Setting(field));
  members.push_back(Unused("unused18", offsetof(ProtocolData, unused18), 2));
  members.push_back(Unused("unused46", offsetof(ProtocolData, unused46), 2));
  members.push_back(DpiLevels());
  members.push_back(Bytes("dpi_led", offsetof(ProtocolData, dpi_led), sizeof(DPILed)));
  members.push_back(Bytes("led_bar", offsetof(ProtocolData, led_bar), sizeof(LedBar)));
  members.push_back(
      ByteRecords("key_functions", offsetof(ProtocolData, key_functions), sizeof(KeyFun), 16));
  members.push_back(Unused("unused203", offsetof(ProtocolData, unused203), 1));
  members.push_back(Shortcuts());
  members.push_back(Macros());
  std::sort(members.begin(), members.end(),
            [](const Member& a, const Member& b) { return a.offset < b.offset; });
  return members;
}

}  // namespace

const std::vector<Member>& RecordMembers() {
  static const std::vector<Member> members = BuildRecordMembers();
  return members;
}

nlohmann::ordered_json LeafToJson(const Member& member, const uint8_t* value) {
  if (member.kind == MemberKind::kNumber) return ReadNumber(value, member.size);
  if (member.kind == MemberKind::kBytes) return std::vector<uint8_t>(value, value + member.count);
  size_t length = member.count;
  while (length > 0 && value[length - 1] == 0)
    --length;
  return EscapeText({value, length});
}

uint32_t ReadNumber(const uint8_t* bytes, size_t size) {
  uint32_t value = 0;
  for (size_t i = size; i > 0; --i)
    value = value << 8 | bytes[i - 1];
  return value;
}

void WriteNumber(uint8_t* bytes, size_t size, uint32_t value) {
  for (size_t i = 0; i < size; ++i, value >>= 8)
    bytes[i] = static_cast<uint8_t>(value);
}

std::string Indexed(const std::string& name, size_t index) {
  return name + "[" + std::to_string(index) + "]";
}

std::string Joined(const std::string& path, const std::string& name) {
  if (path.empty() || name.empty()) return path + name;
  return path + "." + name;
}

}  // namespace perilink::tools
