#include "common/config_members.h"

#include <algorithm>
#include <charconv>

#include "common/escaped_text.h"
#include "perilink/config_layout.h"

namespace perilink::tools {
namespace {

constexpr size_t kLevels = std::size(ProtocolData{}.dpi_levels);

Member Number(std::string name, size_t offset, size_t size, uint32_t most) {
  Member member{};
  member.name = std::move(name);
  member.kind = MemberKind::kNumber;
  member.offset = offset;
  member.size = size;
  member.count = 1;
  member.most = most;
  return member;
}

Member Bytes(std::string name, size_t offset, size_t count) {
  Member member = Number(std::move(name), offset, 1, 0xFF);
  member.kind = MemberKind::kBytes;
  member.count = count;
  return member;
}

Member Measure(std::string name, size_t offset, uint32_t most, std::string measured) {
  Member member = Number(std::move(name), offset, 1, most);
  member.measures = std::move(measured);
  return member;
}

Member Records(std::string name, size_t offset, size_t size, size_t count,
               std::vector<Member> members) {
  Member member = Number(std::move(name), offset, size, 0xFF);
  member.kind = MemberKind::kRecords;
  member.count = count;
  member.members = std::move(members);
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
  Member member = Number(field.name, field.record_offset, field.width, most);
  // There are so many levels and no more.
  if (field.rule == FieldRule::kBelowLevelCount) member.kept_most = kLevels - 1;
  if (field.record_offset == offsetof(ProtocolData, dpi_level_count)) {
    member.kept_least = 1;
    member.kept_most = kLevels;
  }
  return member;
}

Member DpiLevels() {
  return Records(
      "dpi_levels", offsetof(ProtocolData, dpi_levels), sizeof(DPILevel), kLevels,
      {Bytes("value", offsetof(DPILevel, value), 3), Bytes("color", offsetof(DPILevel, color), 3),
       Number("extension1", offsetof(DPILevel, extension1), 2, 0xFFFF),
       Number("extension2", offsetof(DPILevel, extension2), 2, 0xFFFF),
       Number("extension_byte", offsetof(DPILevel, extension_byte), 1, 0xFF)});
}

Member Shortcuts() {
  constexpr size_t kMost = std::size(ShortcutKey{}.events);
  return Records("shortcuts", offsetof(ProtocolData, shortcuts), sizeof(ShortcutKey),
                 std::size(ProtocolData{}.shortcuts),
                 {Measure("count", offsetof(ShortcutKey, count), kMost, "events"),
                  Events(offsetof(ShortcutKey, events), kMost, 0)});
}

Member Macros() {
  constexpr size_t kMost = std::size(MacroKey{}.events);
  Member name = Bytes("name", offsetof(MacroKey, name), sizeof(MacroKey::name));
  name.kind = MemberKind::kText;
  return Records(
      "macros", offsetof(ProtocolData, macros), sizeof(MacroKey), std::size(ProtocolData{}.macros),
      {Measure("name_length", offsetof(MacroKey, name_length), sizeof(MacroKey::name), "name"),
       std::move(name), Measure("count", offsetof(MacroKey, count), kMost, "events"),
       Events(offsetof(MacroKey, events), kMost, 0xFFFF)});
}

std::vector<Member> BuildRecordMembers() {
  std::vector<Member> members;
  for (const ConfigField& field : kSettings)
    members.push_back(Setting(field));
  members.push_back(DpiLevels());
  members.push_back(Bytes("dpi_led", offsetof(ProtocolData, dpi_led), sizeof(DPILed)));
  members.push_back(Bytes("led_bar", offsetof(ProtocolData, led_bar), sizeof(LedBar)));
  // Records that are nothing but their bytes.
  members.push_back(Records("key_functions", offsetof(ProtocolData, key_functions), sizeof(KeyFun),
                            std::size(ProtocolData{}.key_functions),
                            {Bytes("", 0, sizeof(KeyFun))}));
  members.push_back(Shortcuts());
  members.push_back(Macros());
  std::sort(members.begin(), members.end(),
            [](const Member& a, const Member& b) { return a.offset < b.offset; });
  return members;
}

[[noreturn]] void RefusePath(std::string_view path) {
  throw ConfigError(Quotable(path) + ": there is no such field");
}

// Walks a path, a name or an index at a time.
class Walk {
 public:
  explicit Walk(std::string_view path) : path_(path), rest_(path) {}

  Place ToTheEnd() {
    while (!rest_.empty()) {
      if (rest_.front() == '[') {
        TakeEntry(NextIndex());
      } else {
        TakeMember(NextName());
      }
    }
    if (place_.member == nullptr) RefusePath(path_);
    return place_;
  }

 private:
  size_t NextIndex() {
    const size_t close = rest_.find(']');
    if (close == std::string_view::npos) RefusePath(path_);
    size_t index = 0;
    const char* const end = rest_.data() + close;
    const auto [stop, error] = std::from_chars(rest_.data() + 1, end, index);
    if (error != std::errc() || stop != end) RefusePath(path_);
    rest_.remove_prefix(close + 1);
    return index;
  }

  std::string_view NextName() {
    const bool first = place_.member == nullptr;
    if (!first && rest_.front() != '.') RefusePath(path_);
    if (!first) rest_.remove_prefix(1);
    const std::string_view name = rest_.substr(0, rest_.find_first_of(".["));
    rest_.remove_prefix(name.size());
    if (name.empty()) RefusePath(path_);
    return name;
  }

  void TakeMember(std::string_view name) {
    const Member* const found = members_ != nullptr ? FindMember(*members_, name) : nullptr;
    if (found == nullptr) RefusePath(path_);
    place_ = {found,    false,        place_.offset + found->offset, found->size * found->count,
              members_, place_.offset};
    members_ = nullptr;
  }

  void TakeEntry(size_t index) {
    const Member* member = place_.member;
    if (member == nullptr || (place_.is_entry && members_ == nullptr)) RefusePath(path_);
    if (place_.is_entry) {
      // A record of one nameless member is that member.
      member = &members_->front();
      if (!member->name.empty()) RefusePath(path_);
      place_.siblings = members_;
      place_.siblings_offset = place_.offset;
    }
    if (member->kind == MemberKind::kNumber || index >= member->count) RefusePath(path_);
    place_.member = member;
    place_.is_entry = true;
    place_.offset += index * member->size;
    place_.size = member->size;
    members_ = member->members.empty() ? nullptr : &member->members;
  }

  const std::string_view path_;
  std::string_view rest_;
  Place place_{nullptr, false, 0, sizeof(ProtocolData), nullptr, 0};
  const std::vector<Member>* members_ = &RecordMembers();  // that a name would choose among
};

}  // namespace

const std::vector<Member>& RecordMembers() {
  static const std::vector<Member> members = BuildRecordMembers();
  return members;
}

const Member* FindMember(const std::vector<Member>& members, std::string_view name) {
  const auto found = std::find_if(members.begin(), members.end(),
                                  [&](const Member& member) { return member.name == name; });
  return found == members.end() ? nullptr : &*found;
}

const Member* MeasureOf(const std::vector<Member>& members, const Member& measured) {
  const auto found = std::find_if(members.begin(), members.end(), [&](const Member& member) {
    return !measured.name.empty() && member.measures == measured.name;
  });
  return found == members.end() ? nullptr : &*found;
}

Place FindPlace(std::string_view path) {
  return Walk(path).ToTheEnd();
}

Json LeafToJson(const Member& member, const uint8_t* value, size_t length) {
  if (member.kind == MemberKind::kNumber) return ReadNumber(value, member.size);
  if (member.kind == MemberKind::kBytes) return std::vector<uint8_t>(value, value + member.count);
  return EscapeText({value, std::min(length, member.count)});
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
