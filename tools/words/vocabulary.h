// A configuration's fields under the names that people use, with their values in words: as a
// model's description says, or as the plain numbers of the record where there is none.
//
//   Vocabulary words(&model);
//   words.Assign(record, "dpi_levels[2].dpi", "800");
//   for (const Value& value : words.Values(record, known)) ... value.name, value.text ...
#ifndef PERILINK_TOOLS_WORDS_VOCABULARY_H_
#define PERILINK_TOOLS_WORDS_VOCABULARY_H_

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/config.h"
#include "common/config_members.h"
#include "common/config_parts.h"
#include "words/model.h"

namespace perilink::tools {

// One field's value. In JSON it is always
//   {"field", "name", "value", "unit", "text", "raw"}
// with "value" as people say it (800, "#ff0000", true) and "raw" as the record holds it. Both are
// null, and "unknown" is true, when the device's bytes failed their check. "value" alone is null,
// and "undescribed" is true, when the description does not know what the bytes hold.
struct Value {
  std::string field;  // as the record names it: "dpi_levels[2].value"
  std::string name;   // as people do: "dpi_levels[2].dpi"
  std::string label;
  std::string unit;
  std::string text;  // "800 dpi"
  Json value;
  Json raw;
  bool undescribed = false;
  bool unknown = false;
};
Json ToJson(const Value& value);

struct Change {
  Value before;
  Value after;
};

// Bytes of ProtocolData.
struct Extent {
  size_t offset;
  size_t size;
};

class Vocabulary {
 public:
  // Without a model: every field as the record has it. The model must live as long as this.
  explicit Vocabulary(const Model* model = nullptr);

  // All fields in the record's order, empty shortcuts and macros left out, and what the description
  // hides.
  std::vector<Value> Values(const ProtocolData& record, const KnownBytes& known) const;
  // Those that the name, or the beginning of a name, means. Throws ConfigError for none.
  std::vector<Value> Find(std::string_view name, const ProtocolData& record,
                          const KnownBytes& known) const;

  // Gives the field a value, and says which bytes may have changed. Throws ConfigError, which says
  // what would be right. A value may also be the record's own JSON where the field is a list.
  Extent Assign(ProtocolData& record, std::string_view name, std::string_view value) const;

  // What differs, in the record's order. A field that is unknown on both sides does not differ.
  std::vector<Change> Changes(const ProtocolData& before, const KnownBytes& known_before,
                              const ProtocolData& after, const KnownBytes& known_after) const;

  // Something that a direct command told, under one of the names of Describables: as a whole, or in
  // the parts that the description gives it.
  std::vector<Value> Fact(const std::string& name, std::span<const uint8_t> bytes) const;

  // What people call the part of a configuration that one write changes: as the record does where
  // that is more or less than a field.
  std::string NameOf(const ConfigPart& part) const;

  const KeyNames& keys() const;

  // Names that can be typed, for suggestions and completion.
  std::vector<std::string> Names() const;

 private:
  struct Entry {
    std::string field;
    std::string name;
    const Member* member;
    size_t offset;           // of the member in ProtocolData
    size_t measure_offset;   // of the length beside it; the member's own offset if it has none
    const Wording* wording;  // or null

    Extent Bytes() const {
      return {measure_offset, offset + member->size * member->count - measure_offset};
    }
  };

  void AddMembers(const std::vector<Member>& members, const std::string& field,
                  const std::string& name, const std::string& pattern, size_t offset);
  void AddMember(const std::vector<Member>& siblings, const Member& member, Entry entry,
                 const std::string& name_before, const std::string& pattern, size_t offset);
  const FieldWords* WordsOf(const std::string& pattern) const;
  std::string Resolved(std::string_view name, const ProtocolData& record) const;
  const Entry* FindEntry(std::string_view name) const;
  Value ValueOf(const Entry& entry, const ProtocolData& record, const KnownBytes& known) const;
  Value RawValue(const std::string& name, const ProtocolData& record,
                 const KnownBytes& known) const;
  void AssignEntry(const Entry& entry, ProtocolData& record, const std::string& name,
                   std::string_view value) const;
  [[noreturn]] void RefuseName(std::string_view name) const;

  const Model* const model_;
  std::vector<Entry> entries_;
};

// Throws ConfigError when names of the description clash with one another or with the record's, or
// when an alias leads nowhere. ParseModel can't tell.
void RequireUsableNames(const Model& model);

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_WORDS_VOCABULARY_H_
