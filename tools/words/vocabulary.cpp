#include "words/vocabulary.h"

#include <algorithm>
#include <map>

#include "common/escaped_text.h"
#include "common/suggestion.h"
#include "words/events_text.h"

namespace perilink::tools {
namespace {

bool IsKnown(const KnownBytes& known, size_t offset, size_t size) {
  for (size_t i = 0; i < size; ++i) {
    if (!known[offset + i]) return false;
  }
  return true;
}

bool IsSwitch(const Member& member) {
  return member.kind == MemberKind::kNumber && member.most == 1;
}

bool BeginsWith(std::string_view text, std::string_view beginning) {
  return text.substr(0, beginning.size()) == beginning;
}

// Whether the name is this one, or that of a list or a record that it stands in.
bool IsOrHolds(std::string_view holder, std::string_view name) {
  if (!BeginsWith(name, holder)) return false;
  return name.size() == holder.size() || name[holder.size()] == '.' || name[holder.size()] == '[';
}

// A value as it can stand in the record's JSON: JSON, a number as people write it, bytes in
// hexadecimal, or a text, so that names need no quotes.
InputJson RawFromText(const Place& place, std::string_view text) {
  const Member& member = *place.member;
  const bool is_bytes = !place.is_entry && member.kind == MemberKind::kBytes;
  if (is_bytes) {
    if (const auto bytes = BytesFromHex(text, member.count)) return *bytes;
  }
  if (IsSwitch(member)) {
    if (const auto on = SwitchFromText(text)) return *on ? 1u : 0u;
  }
  // A text may stand in quotes, as it is shown, or without them.
  if (!place.is_entry && member.kind == MemberKind::kText && text.substr(0, 1) != "\"") {
    return std::string(text);
  }
  if (const auto number = NumberFromText(text)) return *number;
  try {
    return ParseJson<InputJson>(text);
  } catch (const ConfigError&) {
    return std::string(text);
  }
}

}  // namespace

Json ToJson(const Value& value) {
  Json json = {{"field", value.field}, {"name", value.name}, {"value", value.value}};
  if (!value.unit.empty()) json["unit"] = value.unit;
  json["text"] = value.text;
  json["raw"] = value.raw;
  if (value.undescribed) json["undescribed"] = true;
  if (value.unknown) json["unknown"] = true;
  return json;
}

// ---- Entries -----------------------------------------------------------------------------------

Vocabulary::Vocabulary(const Model* model) : model_(model) {
  AddMembers(RecordMembers(), "", "", "", 0);
}

const FieldWords* Vocabulary::WordsOf(const std::string& pattern) const {
  if (model_ == nullptr) return nullptr;
  const auto found = std::find_if(model_->fields.begin(), model_->fields.end(),
                                  [&](const FieldWords& it) { return it.path == pattern; });
  return found == model_->fields.end() ? nullptr : &*found;
}

void Vocabulary::AddMembers(const std::vector<Member>& members, const std::string& field,
                            const std::string& name, const std::string& pattern, size_t offset) {
  for (const Member& member : members) {
    if (!member.measures.empty()) continue;
    const Member* const measure = MeasureOf(members, member);
    const size_t at = offset + member.offset;
    Entry entry{Joined(field, member.name),
                Joined(name, member.name),
                &member,
                at,
                measure == nullptr ? at : offset + measure->offset,
                nullptr};
    AddMember(members, member, std::move(entry), name, Joined(pattern, member.name), offset);
  }
}

void Vocabulary::AddMember(const std::vector<Member>& siblings, const Member& member, Entry entry,
                           const std::string& name_before, const std::string& pattern,
                           size_t offset) {
  if (member.kind == MemberKind::kRecords) {
    for (size_t i = 0; i < member.count; ++i) {
      AddMembers(member.members, Indexed(entry.field, i), Indexed(entry.name, i), pattern + "[]",
                 offset + member.offset + i * member.size);
    }
    return;
  }
  const FieldWords* const words = WordsOf(pattern);
  if (words == nullptr) {
    entries_.push_back(std::move(entry));
    return;
  }
  if (!words->name.empty()) {
    // A nameless member has its list's name, with the index behind it.
    const bool nameless = siblings.front().name.empty();
    const size_t index = nameless ? name_before.rfind('[') : std::string::npos;
    entry.name =
        nameless ? words->name + name_before.substr(index) : Joined(name_before, words->name);
  }
  for (const Wording& part : words->parts) {
    Entry described = entry;
    described.wording = &part;
    described.name = Joined(entry.name, part.name);
    entries_.push_back(std::move(described));
  }
}

const Vocabulary::Entry* Vocabulary::FindEntry(std::string_view name) const {
  for (const Entry& entry : entries_) {
    const bool by_field =
        entry.field == name && (entry.wording == nullptr || entry.wording->name.empty());
    if (entry.name == name || by_field) return &entry;
  }
  return nullptr;
}

std::vector<std::string> Vocabulary::Names() const {
  std::vector<std::string> names;
  for (const Entry& entry : entries_)
    names.push_back(entry.name);
  if (model_ != nullptr) {
    for (const auto& [alias, path] : model_->aliases)
      names.push_back(alias);
  }
  return names;
}

void Vocabulary::RefuseName(std::string_view name) const {
  if (name.empty()) throw ConfigError("a field's name is empty; one is, for example, report_rate");
  const std::vector<std::string> names = Names();
  throw ConfigError(Quotable(name) + ": there is no such field" +
                    (model_ == nullptr ? " without a description of the model" : "") +
                    DidYouMean(name, names));
}

// Replaces an alias by what it stands for, and the name of a number in brackets by that number.
std::string Vocabulary::Resolved(std::string_view name, const ProtocolData& record) const {
  std::string resolved(name);
  if (model_ != nullptr) {
    for (const auto& [alias, path] : model_->aliases) {
      if (IsOrHolds(alias, resolved)) resolved = path + resolved.substr(alias.size());
    }
  }
  const size_t open = resolved.find('[');
  const size_t close = resolved.find(']', open);
  if (open == std::string::npos || close == std::string::npos) return resolved;
  const std::string index = resolved.substr(open + 1, close - open - 1);
  const Entry* const number = FindEntry(index);
  if (number == nullptr || number->member->kind != MemberKind::kNumber) return resolved;
  return resolved.substr(0, open + 1) +
         std::to_string(ReadNumber(BytesOf(record) + number->offset, number->member->size)) +
         resolved.substr(close);
}

// ---- Values ------------------------------------------------------------------------------------

Value Vocabulary::ValueOf(const Entry& entry, const ProtocolData& record,
                          const KnownBytes& known) const {
  const Member& member = *entry.member;
  const uint8_t* const bytes = BytesOf(record) + entry.offset;
  const size_t size = member.size * member.count;
  Value value;
  value.field = entry.field;
  value.name = entry.name;
  if (entry.wording != nullptr) {
    value.label = entry.wording->label;
    value.unit = entry.wording->unit;
  }
  if (!known[entry.measure_offset] ||
      (member.kind != MemberKind::kEvents && !IsKnown(known, entry.offset, size))) {
    value.unknown = true;
    value.text = "unknown";
    return value;
  }
  value.raw = GetConfigField(record, entry.field);
  value.value = value.raw;
  if (member.kind == MemberKind::kEvents) {
    const size_t count = std::min<size_t>(BytesOf(record)[entry.measure_offset], member.count);
    const std::string events =
        EventsToText({reinterpret_cast<const KeyEvent*>(bytes), count}, keys());
    value.text = events.empty() ? "none" : events;
    value.value = events;
  } else if (member.kind == MemberKind::kText) {
    value.text = "\"" + value.raw.get<std::string>() + "\"";
  } else if (entry.wording == nullptr) {
    value.text = member.kind == MemberKind::kBytes ? HexText({bytes, size}) : value.raw.dump();
  } else if (const auto words = InWords(*entry.wording, {bytes, size})) {
    value.text = words->text;
    value.value = words->value;
  } else {
    value.undescribed = true;
    value.value = nullptr;
    value.text = (member.kind == MemberKind::kNumber ? value.raw.dump() : HexText({bytes, size})) +
                 " (undescribed)";
  }
  return value;
}

// One that is no entry: a part or a whole of some.
Value Vocabulary::RawValue(const std::string& name, const ProtocolData& record,
                           const KnownBytes& known) const {
  const Place place = FindPlace(name);
  Value value;
  value.field = value.name = name;
  value.unknown = !IsKnown(known, place.offset, place.size) && place.member->members.empty();
  value.text = "unknown";
  if (value.unknown) return value;
  value.raw = value.value = GetConfigField(record, name);
  value.text = value.raw.dump();
  return value;
}

std::vector<Value> Vocabulary::Values(const ProtocolData& record, const KnownBytes& known) const {
  std::vector<Value> values;
  for (const Entry& entry : entries_) {
    if (entry.wording != nullptr && entry.wording->hidden) continue;
    const bool in_slot = entry.measure_offset != entry.offset;
    Value value = ValueOf(entry, record, known);
    if (in_slot && !value.unknown && value.raw.empty()) continue;
    if (in_slot && value.raw == "") continue;
    values.push_back(std::move(value));
  }
  return values;
}

std::vector<Value> Vocabulary::Find(std::string_view name, const ProtocolData& record,
                                    const KnownBytes& known) const {
  const std::string resolved = Resolved(name, record);
  std::vector<Value> values;
  if (resolved.empty()) RefuseName(name);
  for (const Entry& entry : entries_) {
    if (IsOrHolds(resolved, entry.name) || IsOrHolds(resolved, entry.field)) {
      values.push_back(ValueOf(entry, record, known));
    }
  }
  if (!values.empty()) return values;
  try {
    return {RawValue(resolved, record, known)};
  } catch (const ConfigError&) {
    RefuseName(resolved);
  }
}

std::vector<Change> Vocabulary::Changes(const ProtocolData& before, const KnownBytes& known_before,
                                        const ProtocolData& after,
                                        const KnownBytes& known_after) const {
  std::vector<Change> changes;
  for (const Entry& entry : entries_) {
    Change change{ValueOf(entry, before, known_before), ValueOf(entry, after, known_after)};
    const bool same =
        change.before.raw == change.after.raw && change.before.unknown == change.after.unknown;
    // Of a field in parts, those that say the same have not changed.
    const bool part = entry.wording != nullptr && !entry.wording->name.empty();
    const bool same_part = part && !change.before.unknown && !change.after.unknown &&
                           change.before.text == change.after.text;
    if (!same && !same_part) changes.push_back(std::move(change));
  }
  return changes;
}

std::vector<Value> Vocabulary::Fact(const std::string& name, std::span<const uint8_t> bytes) const {
  Value plain;
  plain.field = plain.name = name;
  plain.raw = bytes.size() == 1 ? Json(bytes[0]) : Json(HexText(bytes));
  plain.value = plain.raw;
  plain.text = bytes.size() == 1 ? std::to_string(bytes[0]) : HexText(bytes);
  const FieldWords* const words = WordsOf(name);
  if (words == nullptr) return {plain};
  std::vector<Value> values;
  for (const Wording& part : words->parts) {
    Value value = plain;
    value.name = Joined(words->name.empty() ? name : words->name, part.name);
    value.label = part.label;
    value.unit = part.unit;
    if (const auto in_words = InWords(part, bytes)) {
      value.text = in_words->text;
      value.value = in_words->value;
    } else {
      value.undescribed = true;
      value.value = nullptr;
      value.text += " (undescribed)";
    }
    values.push_back(std::move(value));
  }
  return values;
}

std::string Vocabulary::NameOf(const ConfigPart& part) const {
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.offset == part.offset && entry.member->size * entry.member->count == part.size;
  });
  return found == entries_.end() ? part.name : found->name;
}

const KeyNames& Vocabulary::keys() const {
  static const KeyNames none;
  return model_ == nullptr ? none : model_->keys;
}

// ---- Assigning ---------------------------------------------------------------------------------

// `name` is what was typed.
void Vocabulary::AssignEntry(const Entry& entry, ProtocolData& record, const std::string& name,
                             std::string_view value) const {
  const Member& member = *entry.member;
  const bool is_json = !value.empty() && value.front() == '[';
  if (is_json && member.kind != MemberKind::kText) {
    return SetConfigField(record, entry.field, ParseJson<InputJson>(value));
  }
  if (member.kind == MemberKind::kEvents) {
    const std::vector<KeyEvent> events = EventsFromText(value == "none" ? "" : value, keys());
    if (events.size() == 1 || events.size() > member.count) {
      throw ConfigError(name + ": " + std::to_string(events.size()) + " events, 2 to " +
                        std::to_string(member.count) + " or none are wanted");
    }
    uint8_t* const target = BytesOf(record) + entry.offset;
    std::fill_n(target, member.size * member.count, uint8_t{0});
    std::copy_n(reinterpret_cast<const uint8_t*>(events.data()), events.size() * member.size,
                target);
    BytesOf(record)[entry.measure_offset] = static_cast<uint8_t>(events.size());
    return;
  }
  if (entry.wording != nullptr) {
    return FromWords(*entry.wording, value, name,
                     {BytesOf(record) + entry.offset, member.size * member.count});
  }
  SetConfigField(record, entry.field, RawFromText(FindPlace(entry.field), value));
}

Extent Vocabulary::Assign(ProtocolData& record, std::string_view name,
                          std::string_view value) const {
  const std::string resolved = Resolved(name, record);
  if (const Entry* const entry = FindEntry(resolved)) {
    AssignEntry(*entry, record, std::string(name), value);
    return entry->Bytes();
  }
  // "shortcuts[3]" is short for its events.
  if (const Entry* const events = FindEntry(resolved + ".events")) {
    if (BeginsWith(resolved, "shortcuts") && (value.empty() || value.front() != '{')) {
      AssignEntry(*events, record, std::string(name), value);
      return events->Bytes();
    }
  }
  Place place{};
  try {
    place = FindPlace(resolved);
  } catch (const ConfigError&) {
    RefuseName(resolved);
  }
  SetConfigField(record, resolved, RawFromText(place, value));
  return {place.offset, place.size};
}

// ---- Names of a description --------------------------------------------------------------------

void RequireUsableNames(const Model& model) {
  std::map<std::string, std::string> taken;  // a name, and the field that has it
  for (const Describable& it : Describables())
    taken.emplace(it.path, it.path);
  const auto take = [&](const std::string& name, const std::string& field) {
    const auto [place, is_new] = taken.emplace(name, field);
    if (!is_new && place->second != field) {
      throw ConfigError("fields." + field + ": the name '" + name + "' is " + place->second + "'s");
    }
  };
  for (const FieldWords& words : model.fields) {
    if (words.name.empty()) continue;
    const size_t dot = words.path.rfind('.');
    take(dot == std::string::npos ? words.name : words.path.substr(0, dot + 1) + words.name,
         words.path);
  }
  const Vocabulary vocabulary(&model);
  for (const auto& [alias, path] : model.aliases) {
    take(alias, "aliases." + alias);
    try {
      vocabulary.Find(alias, ProtocolData{}, AllBytes());
    } catch (const ConfigError& error) {
      throw ConfigError("aliases." + alias + ": " + error.what());
    }
  }
}

}  // namespace perilink::tools
