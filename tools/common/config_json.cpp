// The JSON form of a configuration: written and read by a walk over the record's members.
#include <algorithm>

#include "common/config.h"
#include "common/config_members.h"
#include "common/escaped_text.h"

namespace perilink::tools {
namespace {

// ---- Writing ----------------------------------------------------------------------------------

class Writer {
 public:
  Writer(const ProtocolData& record, const KnownBytes& known)
      : bytes_(BytesOf(record)), known_(known) {}

  // A record of one nameless member is that member; one of which nothing is known is null.
  Json RecordJson(const std::vector<Member>& members, size_t offset) const {
    if (members.front().name.empty()) return MemberJson(members, members.front(), offset);
    Json object;
    for (const Member& member : members) {
      if (!member.measures.empty()) continue;
      Json value = MemberJson(members, member, offset);
      if (!value.is_null()) object[member.name] = std::move(value);
    }
    return object;
  }

  Json MemberJson(const std::vector<Member>& siblings, const Member& member, size_t offset) const {
    const size_t at = offset + member.offset;
    if (!member.members.empty()) return ListJson(siblings, member, offset);
    if (IsKnown(at, member.size * member.count)) {
      return LeafToJson(member, bytes_ + at, LengthOf(siblings, member, offset));
    }
    if (member.kind != MemberKind::kBytes || !IsPartlyKnown(at, member.count)) return nullptr;
    Json list = Json::array();
    for (size_t i = 0; i < member.count; ++i)
      list.push_back(known_[at + i] ? Json(bytes_[at + i]) : Json());
    return list;
  }

 private:
  Json ListJson(const std::vector<Member>& siblings, const Member& member, size_t offset) const {
    const size_t at = offset + member.offset;
    const size_t length = LengthOf(siblings, member, offset);
    if (member.kind == MemberKind::kEvents && !IsKnown(at, length * member.size)) return nullptr;
    if (!IsPartlyKnown(at, member.size * member.count)) return nullptr;
    Json list = Json::array();
    for (size_t i = 0; i < length; ++i)
      list.push_back(RecordJson(member.members, at + i * member.size));
    return list;
  }

  // How many entries are in use.
  size_t LengthOf(const std::vector<Member>& siblings, const Member& member, size_t offset) const {
    const Member* const measure = MeasureOf(siblings, member);
    if (measure == nullptr) return member.count;
    const uint32_t length = ReadNumber(bytes_ + offset + measure->offset, measure->size);
    return std::min<size_t>(length, member.count);
  }

  bool IsKnown(size_t offset, size_t size) const {
    for (size_t i = 0; i < size; ++i) {
      if (!known_[offset + i]) return false;
    }
    return true;
  }
  bool IsPartlyKnown(size_t offset, size_t size) const {
    for (size_t i = 0; i < size; ++i) {
      if (known_[offset + i]) return true;
    }
    return false;
  }

  const uint8_t* const bytes_;
  const KnownBytes& known_;
};

// ---- Reading ----------------------------------------------------------------------------------

// A path may come out of the document, with anything in its names.
[[noreturn]] void Refuse(std::string_view path, const std::string& why) {
  throw ConfigError(Quotable(path) + ": " + why);
}

uint32_t NumberFromJson(const InputJson& value, uint32_t most, const std::string& path) {
  if (value.is_string())
    Refuse(path, "'" + Quotable(value.get<std::string>()) + "' is not a whole number");
  if (!value.is_number_integer()) Refuse(path, "a whole number is wanted");
  const bool negative = !value.is_number_unsigned() && value.get<int64_t>() < 0;
  if (negative || value.get<uint64_t>() > most) {
    Refuse(path, value.dump() + " is out of range, 0 to " + std::to_string(most) + " is wanted");
  }
  return value.get<uint32_t>();
}

void RequireEntries(const InputJson& value, size_t least, size_t most, const std::string& path) {
  if (!value.is_array()) Refuse(path, "a list is wanted");
  if (value.size() >= least && value.size() <= most) return;
  const std::string wanted =
      least == most ? std::to_string(most) : std::to_string(least) + " to " + std::to_string(most);
  Refuse(path, std::to_string(value.size()) + " entries, " + wanted + " are wanted");
}

class Reader {
 public:
  // What a document does not tell stays as it is.
  enum class Strangers { kAreNamed, kAreRefused };
  Reader(ConfigFile& file, Strangers strangers) : file_(file), strangers_(strangers) {}

  void ReadRecord(const std::vector<Member>& members, const InputJson& value,
                  const std::string& path, size_t offset) {
    if (members.front().name.empty()) {
      return ReadMember(members, members.front(), value, path, offset);
    }
    if (!value.is_object()) Refuse(path, "an object is wanted");
    for (const auto& item : value.items()) {
      if (FindMember(members, item.key()) == nullptr) AddStranger(Joined(path, item.key()));
    }
    const auto tells = [&value](const std::string& name) {
      const auto found = value.find(name);
      return found != value.end() && !found->is_null();
    };
    for (const Member& member : members) {
      if (!member.measures.empty()) continue;
      const std::string name = Joined(path, member.name);
      if (!tells(member.name)) {
        file_.missing.Add(name);
      } else {
        ReadMember(members, member, value[member.name], name, offset);
      }
    }
    // The length of what is not there tells nothing.
    for (const Member& member : members) {
      if (member.measures.empty() || !tells(member.name)) continue;
      const std::string name = Joined(path, member.name);
      if (tells(member.measures)) {
        ReadLength(members, member, value[member.name], name, offset);
      } else if (strangers_ == Strangers::kAreRefused) {
        Refuse(name, "tells nothing without '" + member.measures + "'");
      }
    }
  }

  // A text or a list of events sets its length, too.
  void ReadMember(const std::vector<Member>& siblings, const Member& member, const InputJson& value,
                  const std::string& path, size_t offset) {
    const size_t at = offset + member.offset;
    switch (member.kind) {
      case MemberKind::kNumber:
        return WriteNumber(Bytes(at, member.size), member.size,
                           NumberFromJson(value, member.most, path));
      case MemberKind::kBytes:
        RequireEntries(value, member.count, member.count, path);
        for (size_t i = 0; i < member.count; ++i)
          ReadByte(member, value[i], Indexed(path, i), at + i);
        return;
      case MemberKind::kText:
        return SetLength(siblings, member, offset, ReadText(member, value, path, at));
      case MemberKind::kEvents:
        return SetLength(siblings, member, offset, ReadEvents(member, value, path, at));
      case MemberKind::kRecords:
        return ReadRecords(member, value, path, at);
    }
  }

  void ReadByte(const Member& member, const InputJson& value, const std::string& path,
                size_t offset) {
    if (value.is_null()) return file_.missing.Add(path);
    *Bytes(offset, 1) = static_cast<uint8_t>(NumberFromJson(value, member.most, path));
  }

 private:
  size_t ReadText(const Member& member, const InputJson& value, const std::string& path,
                  size_t at) {
    if (!value.is_string()) Refuse(path, "a text is wanted");
    const auto bytes = UnescapeText(value.get_ref<const std::string&>());
    if (!bytes) Refuse(path, "a backslash must begin \\\\ or \\x and two of 0123456789abcdef");
    if (bytes->size() > member.count) {
      Refuse(path, std::to_string(bytes->size()) + " bytes, at most " +
                       std::to_string(member.count) + " fit");
    }
    std::fill_n(std::copy(bytes->begin(), bytes->end(), Bytes(at, member.count)),
                member.count - bytes->size(), uint8_t{0});
    return bytes->size();
  }

  size_t ReadEvents(const Member& member, const InputJson& value, const std::string& path,
                    size_t at) {
    RequireEntries(value, 0, member.count, path);
    if (value.size() == 1) Refuse(path, "1 event; none or at least 2 are wanted");
    std::fill_n(Bytes(at, member.count * member.size), member.count * member.size, uint8_t{0});
    for (size_t i = 0; i < value.size(); ++i)
      ReadRecord(member.members, value[i], Indexed(path, i), at + i * member.size);
    return value.size();
  }

  void ReadRecords(const Member& member, const InputJson& value, const std::string& path,
                   size_t at) {
    if (!value.is_array()) Refuse(path, "a list is wanted");
    for (size_t i = 0; i < member.count; ++i) {
      const bool is_there = i < value.size() && !value[i].is_null();
      if (is_there) ReadRecord(member.members, value[i], Indexed(path, i), at + i * member.size);
      if (!is_there) file_.missing.Add(Indexed(path, i));
    }
    const size_t named = std::min(value.size(), member.count + NameList::kMostKept);
    for (size_t i = member.count; i < named; ++i)
      AddStranger(Indexed(path, i));
    if (value.size() > named) file_.unknown.AddNameless(value.size() - named);
  }

  void SetLength(const std::vector<Member>& siblings, const Member& member, size_t offset,
                 size_t length) {
    const Member& measure = *MeasureOf(siblings, member);
    WriteNumber(Bytes(offset + measure.offset, measure.size), measure.size,
                static_cast<uint32_t>(length));
  }

  // A length that the document tells besides: no longer than its list of events, but a text may be
  // cut where zeros follow.
  void ReadLength(const std::vector<Member>& siblings, const Member& measure,
                  const InputJson& value, const std::string& path, size_t offset) {
    const uint32_t told = NumberFromJson(value, measure.most, path);
    const bool counts_events = FindMember(siblings, measure.measures)->kind == MemberKind::kEvents;
    if (counts_events && told == 1) Refuse(path, "1 is out of range, 0 or at least 2");
    uint8_t* const target = Bytes(offset + measure.offset, measure.size);
    if (counts_events && told > ReadNumber(target, measure.size)) {
      Refuse(path, std::to_string(told) + ", but the list of events is shorter");
    }
    WriteNumber(target, measure.size, told);
  }

  void AddStranger(const std::string& name) {
    if (strangers_ == Strangers::kAreRefused) Refuse(name, "there is no such field");
    file_.unknown.Add(Quotable(name));
  }

  uint8_t* Bytes(size_t offset, size_t size) {
    for (size_t i = 0; i < size; ++i)
      file_.known.set(offset + i);
    return BytesOf(file_.record) + offset;
  }

  ConfigFile& file_;
  const Strangers strangers_;
};

int VersionOf(const InputJson& document) {
  const auto found = document.find("version");
  if (found == document.end() || !found->is_number_integer() || *found < 1 || *found > 1'000'000) {
    Refuse("version", "a whole number from 1 is wanted");
  }
  return found->get<int>();
}

}  // namespace

void NameList::Add(std::string name) {
  if (++size_ <= kMostKept) names_.push_back(std::move(name));
}

std::string NameList::Text(size_t most) const {
  const size_t shown = std::min(most, names_.size());
  std::string text;
  for (size_t i = 0; i < shown; ++i)
    text += (i == 0 ? "" : ", ") + names_[i];
  if (size_ > shown) text += " and " + std::to_string(size_ - shown) + " more";
  return text;
}

Json ConfigToJson(const ProtocolData& record, const KnownBytes& known, const std::string& model) {
  Json document = {{"format", kConfigFormat}, {"version", kConfigVersion}};
  if (!model.empty()) document["model"] = model;
  const Json fields = Writer(record, known).RecordJson(RecordMembers(), 0);
  if (!fields.is_null()) document.update(fields);
  return document;
}

ConfigFile ConfigFromJson(const InputJson& document) {
  if (!document.is_object()) throw ConfigError("not a configuration: an object is wanted");
  if (document.value("format", InputJson()) != kConfigFormat) {
    Refuse("format", std::string("\"") + kConfigFormat + "\" is wanted");
  }
  ConfigFile file;
  file.version = VersionOf(document);
  const InputJson model = document.value("model", InputJson());
  if (model.is_string()) file.model = model.get<std::string>();
  InputJson fields = document;
  for (const char* name : {"format", "version", "model"})
    fields.erase(name);
  // The first version stored the padding too.
  if (file.version == 1) {
    for (const char* name : {"unused18", "unused46", "unused203"})
      fields.erase(name);
    for (const char* list : {"dpi_levels", "shortcuts"}) {
      if (!fields.contains(list) || !fields[list].is_array()) continue;
      for (InputJson& entry : fields[list]) {
        if (entry.is_object()) entry.erase("unused");
      }
    }
  }
  Reader(file, Reader::Strangers::kAreNamed).ReadRecord(RecordMembers(), fields, "", 0);
  return file;
}

Json GetConfigField(const ProtocolData& record, std::string_view path) {
  const Place place = FindPlace(path);
  const KnownBytes known = AllBytes();
  const Writer writer(record, known);
  if (!place.is_entry) {
    return writer.MemberJson(*place.siblings, *place.member, place.siblings_offset);
  }
  if (place.member->members.empty()) return *(BytesOf(record) + place.offset);
  return writer.RecordJson(place.member->members, place.offset);
}

void SetConfigField(ProtocolData& record, std::string_view path, const InputJson& value) {
  const Place place = FindPlace(path);
  const std::string name(path);
  if (value.is_null()) Refuse(name, "a value is wanted");
  ConfigFile file;
  file.record = record;
  Reader reader(file, Reader::Strangers::kAreRefused);
  if (!place.is_entry) {
    reader.ReadMember(*place.siblings, *place.member, value, name, place.siblings_offset);
  } else if (place.member->members.empty()) {
    reader.ReadByte(*place.member, value, name, place.offset);
  } else {
    reader.ReadRecord(place.member->members, value, name, place.offset);
  }
  record = file.record;
}

}  // namespace perilink::tools
