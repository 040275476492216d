// Configuration records as people and files hold them: JSON, readable text, differences, and the
// images that devices hand out.
//
// Fields are named as in perilink/records.h, with their place in a list: "dpi_levels[2].color".
// Lists of single bytes stand for the records that hold nothing else ("led_bar", "key_functions").
#ifndef PERILINK_TOOLS_COMMON_CONFIG_H_
#define PERILINK_TOOLS_COMMON_CONFIG_H_

#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "perilink/records.h"

namespace perilink::tools {

using Json = nlohmann::ordered_json;

// What the JSON form calls itself. A reader refuses any other.
inline constexpr const char* kConfigFormat = "perilink-configuration";
inline constexpr int kConfigVersion = 1;

// A file or document that is no configuration. One line of printable text; names the field when it
// is about one.
class ConfigError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The record as JSON: an object with "format", "version" and every member of ProtocolData. Lists
// of key events end with the last event that is counted or not zero. A macro's name is its
// characters, with \\ for a backslash and \x00 to \xff for every byte that is no printable
// character of UTF-8; zeros at its end are left out.
Json ConfigToJson(const ProtocolData& record);

// The record that the document describes, byte for byte. Throws ConfigError for a field that is
// missing, unknown, of another type or beyond what a device can hold.
ProtocolData ConfigFromJson(const Json& document);
// The same from a file's text; also refuses a key that stands twice in its object.
ProtocolData ConfigFromText(std::string_view text);

// One field's value in the form that it has in the JSON document. Throws ConfigError when there is
// no such field. `path` may name a number, a list or a record.
Json GetConfigField(const ProtocolData& record, std::string_view path);
void SetConfigField(ProtocolData& record, std::string_view path, const Json& value);

// A value as people type it: JSON or, when it is none, a text, so that names need no quotes. Throws
// ConfigError as ConfigFromText does.
Json ConfigValueFromText(const std::string& text);

// Several at once, for fields that go together: only the result has to be a configuration. The
// record is untouched when it is none.
struct ConfigAssignment {
  std::string path;
  Json value;
};
void SetConfigFields(ProtocolData& record, std::span<const ConfigAssignment> assignments);

// The record as lines for people; empty shortcuts and macros are left out.
std::string ConfigText(const ProtocolData& record);

// The record without what the device can't hold: bytes that nobody uses, events beyond the count
// and name bytes beyond the length are zero.
ProtocolData Canonical(const ProtocolData& record);

struct Difference {
  std::string field;
  Json before;
  Json after;
};

// The fields in which two records' canonical forms differ, in the record's order.
std::vector<Difference> ConfigDifferences(const ProtocolData& before, const ProtocolData& after);

// The fields of a device's image (6960 bytes) whose check byte is wrong, and the slots that are
// neither valid nor empty, in the record's order. The parsers give such a field its default or
// leave it alone.
std::vector<std::string> FailedChecks(std::span<const uint8_t> image);

struct LoadedConfig {
  ProtocolData record{};
  bool from_image = false;
  std::vector<std::string> failed_checks;  // of an image
};

// A configuration file's content: an image of 6960 bytes, or the JSON form. Throws ConfigError.
// Parsing an image calls ProtocolDataParser, which arms ProtocolDataUpdate.
LoadedConfig LoadConfig(std::string_view content);

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_COMMON_CONFIG_H_
