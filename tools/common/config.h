// Configuration records as files hold them: JSON, and the images that devices hand out.
//
// Fields are named as in perilink/records.h, with their place in a list: "dpi_levels[2].color".
// Lists of single bytes stand for the records that hold nothing else ("led_bar", "key_functions").
#ifndef PERILINK_TOOLS_COMMON_CONFIG_H_
#define PERILINK_TOOLS_COMMON_CONFIG_H_

#include <bitset>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/json_text.h"
#include "perilink/records.h"

namespace perilink::tools {

// What the JSON form calls itself; a reader refuses any other. A file of another version is read
// for what it has: what this one does not know, or misses, is named and left alone.
inline constexpr const char* kConfigFormat = "perilink-configuration";
inline constexpr int kConfigVersion = 2;

// Which bytes of a ProtocolData are known: of a field that failed its check, or that a file does
// not have, none.
using KnownBytes = std::bitset<sizeof(ProtocolData)>;
inline KnownBytes AllBytes() {
  return KnownBytes().set();
}

// Names that can be many: the first of them, and how many there are.
class NameList {
 public:
  static constexpr size_t kMostKept = 50;
  void Add(std::string name);
  // More of them, whose names nobody will ask for.
  void AddNameless(size_t count) { size_ += count; }
  bool empty() const { return size_ == 0; }
  size_t size() const { return size_; }
  const std::vector<std::string>& names() const { return names_; }  // at most kMostKept
  // "a, b and 3 more": so many of them by name.
  std::string Text(size_t most = 8) const;

 private:
  std::vector<std::string> names_;
  size_t size_ = 0;
};

// A configuration from a file.
struct ConfigFile {
  ProtocolData record{};
  KnownBytes known;  // what of the record the file tells; the rest is 0
  bool from_image = false;
  NameList failed_checks;  // of an image

  // Of the JSON form.
  int version = kConfigVersion;
  std::string model;  // the model it was saved from, or empty
  NameList unknown;   // what stands in the file beside its fields
  NameList missing;   // fields that it does not have
};

// The record as JSON: an object with "format", "version" and every member of ProtocolData of which
// all bytes are known. Lists of key events and names are as long as their counts say, which do not
// stand there themselves. A macro's name is its characters, with \\ for a backslash and \x00 to
// \xff for every byte that is no printable character of UTF-8. An entry of a list that is not
// known is null. `model` is left out when it is empty.
Json ConfigToJson(const ProtocolData& record, const KnownBytes& known = AllBytes(),
                  const std::string& model = "");

// What the document describes. Throws ConfigError for a field of another type or beyond what the
// record can hold.
ConfigFile ConfigFromJson(const InputJson& document);

// A configuration file's content: an image of 6960 bytes, or the JSON form. Throws ConfigError.
// Parsing an image calls ProtocolDataParser, which arms ProtocolDataUpdate.
ConfigFile LoadConfig(std::string_view content);

// One field's value in the form that it has in the JSON document. Throws ConfigError when there is
// no such field. `path` may name a number, a list or a record. A name or a list of events takes its
// count along.
Json GetConfigField(const ProtocolData& record, std::string_view path);
void SetConfigField(ProtocolData& record, std::string_view path, const InputJson& value);

// The record without what the device can't hold: padding, events beyond the count and name bytes
// beyond the length are zero.
ProtocolData Canonical(const ProtocolData& record);

struct Difference {
  std::string field;
  Json before;
  Json after;
};

// The fields in which two records' canonical forms differ, in the record's order.
std::vector<Difference> ConfigDifferences(const ProtocolData& before, const ProtocolData& after);

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_COMMON_CONFIG_H_
