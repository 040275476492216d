// A configuration as people read it, and what differs between two.
#include <algorithm>

#include "common/config.h"
#include "common/config_members.h"
#include "common/escaped_text.h"

namespace perilink::tools {
namespace {

constexpr size_t kValueColumn = 20;

std::string HexText(const uint8_t* bytes, size_t count) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    if (i > 0) text += ' ';
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0F];
  }
  return text;
}

std::string ValueText(const Member& member, const uint8_t* value) {
  if (member.kind == MemberKind::kNumber) return std::to_string(ReadNumber(value, member.size));
  return HexText(value, member.count);
}

// "value 01 02 03, color ff ff ff, extension1 65535"
std::string RecordText(const std::vector<Member>& members, const uint8_t* record) {
  std::string text;
  for (const Member& member : members) {
    if (member.unused) continue;
    if (!text.empty()) text += ", ";
    if (!member.name.empty()) text += member.name + " ";
    text += ValueText(member, record + member.offset);
  }
  return text;
}

std::string Line(const std::string& label, const std::string& text) {
  const size_t gap = label.size() < kValueColumn ? kValueColumn - label.size() : 1;
  return label + std::string(gap, ' ') + text + "\n";
}

const Member& FindMember(const std::vector<Member>& members, std::string_view name) {
  return *std::find_if(members.begin(), members.end(),
                       [&](const Member& member) { return member.name == name; });
}

std::string EventLines(const Member& events, const KeyEvent* event, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i, ++event) {
    text += Line("  " + Indexed(events.name, i), RecordText(events.members, &event->kind));
  }
  return text;
}

std::string CountText(size_t count) {
  return std::to_string(count) + " events";
}

std::string ShortcutLines(const Member& shortcuts, const ProtocolData& record) {
  const Member& events = FindMember(shortcuts.members, "events");
  std::string text;
  for (size_t i = 0; i < shortcuts.count; ++i) {
    const ShortcutKey& shortcut = record.shortcuts[i];
    if (shortcut.count == 0) continue;
    text += Line(Indexed(shortcuts.name, i), CountText(shortcut.count));
    text += EventLines(events, shortcut.events, std::min<size_t>(shortcut.count, events.count));
  }
  return text;
}

std::string MacroLines(const Member& macros, const ProtocolData& record) {
  const Member& events = FindMember(macros.members, "events");
  std::string text;
  for (size_t i = 0; i < macros.count; ++i) {
    const MacroKey& macro = record.macros[i];
    if (macro.count == 0 && macro.name_length == 0) continue;
    const size_t name_length = std::min<size_t>(macro.name_length, sizeof(macro.name));
    text += Line(Indexed(macros.name, i),
                 "\"" + EscapeText({macro.name, name_length}) + "\", " + CountText(macro.count));
    text += EventLines(events, macro.events, std::min<size_t>(macro.count, events.count));
  }
  return text;
}

std::string MemberLines(const Member& member, const ProtocolData& record) {
  const uint8_t* value = &record.report_rate + member.offset;
  if (member.unused) return "";
  if (member.name == "shortcuts") return ShortcutLines(member, record);
  if (member.name == "macros") return MacroLines(member, record);
  if (member.kind != MemberKind::kRecords) return Line(member.name, ValueText(member, value));
  std::string text;
  for (size_t i = 0; i < member.count; ++i) {
    text += Line(Indexed(member.name, i), RecordText(member.members, value + i * member.size));
  }
  return text;
}

void AddDifferences(const std::vector<Member>& members, const std::string& path,
                    const uint8_t* before, const uint8_t* after,
                    std::vector<Difference>& differences) {
  for (const Member& member : members) {
    const std::string name = Joined(path, member.name);
    const uint8_t* old_value = before + member.offset;
    const uint8_t* new_value = after + member.offset;
    if (!member.members.empty()) {
      for (size_t i = 0; i < member.count; ++i) {
        AddDifferences(member.members, Indexed(name, i), old_value + i * member.size,
                       new_value + i * member.size, differences);
      }
    } else if (!std::equal(old_value, old_value + member.size * member.count, new_value)) {
      differences.push_back({name, LeafToJson(member, old_value), LeafToJson(member, new_value)});
    }
  }
}

// Zeros the entries of a list from `used` on.
template <typename Entry, size_t kCount>
void ClearFrom(Entry (&entries)[kCount], size_t used) {
  std::fill(entries + std::min(used, kCount), entries + kCount, Entry{});
}

}  // namespace

std::string ConfigText(const ProtocolData& record) {
  std::string text;
  for (const Member& member : RecordMembers())
    text += MemberLines(member, record);
  return text;
}

ProtocolData Canonical(const ProtocolData& record) {
  ProtocolData canonical = record;
  ClearFrom(canonical.unused18, 0);
  ClearFrom(canonical.unused46, 0);
  canonical.unused203 = 0;
  for (DPILevel& level : canonical.dpi_levels)
    level.unused = 0;
  for (ShortcutKey& shortcut : canonical.shortcuts) {
    ClearFrom(shortcut.unused, 0);
    ClearFrom(shortcut.events, shortcut.count);
  }
  for (MacroKey& macro : canonical.macros) {
    ClearFrom(macro.name, macro.name_length);
    ClearFrom(macro.events, macro.count);
  }
  return canonical;
}

std::vector<Difference> ConfigDifferences(const ProtocolData& before, const ProtocolData& after) {
  const ProtocolData old_record = Canonical(before);
  const ProtocolData new_record = Canonical(after);
  std::vector<Difference> differences;
  AddDifferences(RecordMembers(), "", &old_record.report_rate, &new_record.report_rate,
                 differences);
  return differences;
}

}  // namespace perilink::tools
