// The JSON form of a configuration: written and read by a walk over the record's members.
#include <algorithm>
#include <set>

#include "common/config.h"
#include "common/config_members.h"
#include "common/escaped_text.h"

namespace perilink::tools {
namespace {

bool IsZero(const uint8_t* bytes, size_t size) {
  return std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == 0; });
}

// ---- Writing ----------------------------------------------------------------------------------

Json RecordToJson(const std::vector<Member>& members, const uint8_t* record);

// How many entries a list shows: all, or of events those up to the last in use.
size_t ShownEntries(const Member& member, const uint8_t* entries, size_t counted) {
  size_t shown = member.count;
  if (member.kind != MemberKind::kEvents) return shown;
  while (shown > counted && IsZero(entries + (shown - 1) * member.size, member.size))
    --shown;
  return shown;
}

Json MemberToJson(const Member& member, const uint8_t* value, size_t counted) {
  if (member.members.empty()) return LeafToJson(member, value);
  Json list = Json::array();
  const size_t shown = ShownEntries(member, value, counted);
  for (size_t i = 0; i < shown; ++i) {
    list.push_back(RecordToJson(member.members, value + i * member.size));
  }
  return list;
}

// A record of one nameless member is that member.
Json RecordToJson(const std::vector<Member>& members, const uint8_t* record) {
  if (members.front().name.empty()) return MemberToJson(members.front(), record, 0);
  Json object = Json::object();
  size_t counted = 0;
  for (const Member& member : members) {
    if (member.counts_events) counted = ReadNumber(record + member.offset, member.size);
    object[member.name] = MemberToJson(member, record + member.offset, counted);
  }
  return object;
}

// ---- Reading ----------------------------------------------------------------------------------

// A path may come out of the document, with anything in its names.
[[noreturn]] void Refuse(std::string_view path, const std::string& why) {
  throw ConfigError(EscapeText(path) + ": " + why);
}

void RecordFromJson(const std::vector<Member>& members, const Json& value, const std::string& path,
                    uint8_t* record);

uint32_t NumberFromJson(const Json& value, uint32_t most, const std::string& path) {
  if (!value.is_number_integer()) Refuse(path, "a whole number is wanted");
  const bool negative = !value.is_number_unsigned() && value.get<int64_t>() < 0;
  if (negative || value.get<uint64_t>() > most) {
    Refuse(path, value.dump() + " is out of range, 0 to " + std::to_string(most) + " is wanted");
  }
  return value.get<uint32_t>();
}

const Json& ListFromJson(const Json& value, size_t least, size_t most, const std::string& path) {
  if (!value.is_array()) Refuse(path, "a list is wanted");
  if (value.size() < least || value.size() > most) {
    const std::string wanted = least == most
                                   ? std::to_string(most)
                                   : std::to_string(least) + " to " + std::to_string(most);
    Refuse(path, std::to_string(value.size()) + " entries, " + wanted + " are wanted");
  }
  return value;
}

void BytesFromJson(const Member& member, const Json& value, const std::string& path,
                   uint8_t* target) {
  size_t i = 0;
  for (const Json& byte : ListFromJson(value, member.count, member.count, path)) {
    target[i] = static_cast<uint8_t>(NumberFromJson(byte, member.most, Indexed(path, i)));
    ++i;
  }
}

void TextFromJson(const Member& member, const Json& value, const std::string& path,
                  uint8_t* target) {
  if (!value.is_string()) Refuse(path, "a text is wanted");
  const auto bytes = UnescapeText(value.get_ref<const std::string&>());
  if (!bytes) Refuse(path, "a backslash must begin \\\\ or \\x and two of 0123456789abcdef");
  if (bytes->size() > member.count) {
    Refuse(path, std::to_string(bytes->size()) + " bytes, at most " + std::to_string(member.count) +
                     " fit");
  }
  std::fill_n(std::copy(bytes->begin(), bytes->end(), target), member.count - bytes->size(), 0);
}

void MemberFromJson(const Member& member, const Json& value, const std::string& path,
                    size_t counted, uint8_t* target) {
  switch (member.kind) {
    case MemberKind::kNumber: {
      const uint32_t number = NumberFromJson(value, member.most, path);
      if (member.counts_events && number == 1) Refuse(path, "1 is out of range, 0 or at least 2");
      return WriteNumber(target, member.size, number);
    }
    case MemberKind::kBytes:
      return BytesFromJson(member, value, path, target);
    case MemberKind::kText:
      return TextFromJson(member, value, path, target);
    case MemberKind::kRecords:
    case MemberKind::kEvents:
      break;
  }
  const size_t least = member.kind == MemberKind::kEvents ? counted : member.count;
  std::fill_n(target, member.count * member.size, uint8_t{0});
  size_t i = 0;
  for (const Json& entry : ListFromJson(value, least, member.count, path)) {
    RecordFromJson(member.members, entry, Indexed(path, i), target + i * member.size);
    ++i;
  }
}

bool IsMember(const std::vector<Member>& members, const std::string& name) {
  return std::any_of(members.begin(), members.end(),
                     [&](const Member& member) { return member.name == name; });
}

void RecordFromJson(const std::vector<Member>& members, const Json& value, const std::string& path,
                    uint8_t* record) {
  if (members.front().name.empty()) {
    return MemberFromJson(members.front(), value, path, 0, record);
  }
  if (!value.is_object()) Refuse(path, "an object is wanted");
  for (const auto& item : value.items()) {
    if (!IsMember(members, item.key())) Refuse(Joined(path, item.key()), "there is no such field");
  }
  size_t counted = 0;
  for (const Member& member : members) {
    const std::string member_path = Joined(path, member.name);
    const auto found = value.find(member.name);
    if (found == value.end()) Refuse(member_path, "the field is missing");
    MemberFromJson(member, *found, member_path, counted, record + member.offset);
    if (member.counts_events) counted = ReadNumber(record + member.offset, member.size);
  }
}

// Far deeper than any configuration, and far from the depth at which a copy fills the stack.
constexpr int kMostDepth = 100;

// Parses with an eye on keys that stand twice, of which a plain parser silently drops one.
Json Parse(std::string_view text) {
  std::vector<std::set<std::string>> open;
  const auto watch = [&](int depth, Json::parse_event_t event, Json& parsed) {
    if (depth > kMostDepth) throw ConfigError("not a configuration: lists stand in lists");
    if (event == Json::parse_event_t::object_start) open.emplace_back();
    if (event == Json::parse_event_t::object_end) open.pop_back();
    if (event == Json::parse_event_t::key &&
        !open.back().insert(parsed.get_ref<const std::string&>()).second) {
      Refuse(parsed.get_ref<const std::string&>(), "the field stands twice");
    }
    return true;
  };
  return Json::parse(text, watch);
}

Json ParseDocument(std::string_view text) {
  try {
    return Parse(text);
  } catch (const Json::parse_error& error) {
    const std::string_view what = error.what();
    throw ConfigError("not JSON: " + EscapeText(what.substr(what.find("] ") + 2)));
  }
}

// ---- Single fields ----------------------------------------------------------------------------

// "dpi_levels[2].color" leads through the document as "/dpi_levels/2/color".
Json::json_pointer PointerTo(std::string_view path) {
  std::string pointer = "/";
  for (const char c : path) {
    if (c == '[' || c == '.') {
      pointer += '/';
    } else if (c != ']') {
      pointer += c;
    }
  }
  return Json::json_pointer(pointer);
}

// The place in the document.
Json& Find(Json& document, std::string_view path) {
  const std::string name(path);
  const bool spelt = !path.empty() && path.find_first_of("/~") == std::string_view::npos &&
                     name != "format" && name != "version";
  try {
    if (spelt) return document.at(PointerTo(path));
  } catch (const Json::exception&) {
    // Not a number where an index is wanted, beyond a list, or no such member.
  }
  Refuse(name, "there is no such field");
}

}  // namespace

Json ConfigToJson(const ProtocolData& record) {
  Json document = {{"format", kConfigFormat}, {"version", kConfigVersion}};
  document.update(RecordToJson(RecordMembers(), &record.report_rate));
  return document;
}

ProtocolData ConfigFromJson(const Json& document) {
  if (!document.is_object()) throw ConfigError("not a configuration: an object is wanted");
  Json fields = document;
  if (fields.value("format", Json()) != kConfigFormat) {
    Refuse("format", std::string("\"") + kConfigFormat + "\" is wanted");
  }
  if (fields.value("version", Json()) != kConfigVersion) {
    Refuse("version", "only version " + std::to_string(kConfigVersion) + " is understood");
  }
  fields.erase("format");
  fields.erase("version");
  ProtocolData record{};
  RecordFromJson(RecordMembers(), fields, "", &record.report_rate);
  return record;
}

ProtocolData ConfigFromText(std::string_view text) {
  return ConfigFromJson(ParseDocument(text));
}

Json ConfigValueFromText(const std::string& text) {
  try {
    return Parse(text);
  } catch (const Json::parse_error&) {
    return text;
  }
}

Json GetConfigField(const ProtocolData& record, std::string_view path) {
  Json document = ConfigToJson(record);
  return Find(document, path);
}

void SetConfigField(ProtocolData& record, std::string_view path, const Json& value) {
  const ConfigAssignment assignment{std::string(path), value};
  SetConfigFields(record, {&assignment, 1});
}

void SetConfigFields(ProtocolData& record, std::span<const ConfigAssignment> assignments) {
  Json document = ConfigToJson(record);
  for (const ConfigAssignment& it : assignments)
    Find(document, it.path) = it.value;
  record = ConfigFromJson(document);
}

}  // namespace perilink::tools
