// Descriptions of models: small JSON files that give a device's fields names, units and choices.
// docs/models.md describes the format. A description only tells how to write what is there: without
// it every field can be read and changed as numbers.
#ifndef PERILINK_TOOLS_WORDS_MODEL_H_
#define PERILINK_TOOLS_WORDS_MODEL_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "words/key_names.h"
#include "words/wording.h"

namespace perilink::tools {

inline constexpr const char* kModelFormat = "perilink-model";
inline constexpr int kModelVersion = 1;
// Far more than any description needs.
inline constexpr size_t kLongestModel = 64 * 1024;

struct DeviceId {
  uint16_t vendor = 0;
  uint16_t product = 0;
  bool operator==(const DeviceId&) const = default;
};

// What can be described: the values of the record that no others are part of, and what the direct
// commands tell. "[]" stands for every entry of a list.
struct Describable {
  std::string path;  // "dpi_levels[].color", "receiver_colours"
  size_t size;       // bytes
  bool is_number;
};
const std::vector<Describable>& Describables();

// A field's wordings: one for all of it, or some for parts of it.
struct FieldWords {
  std::string path;  // one of Describables
  std::string name;  // instead of the last step of the path; empty: that
  std::vector<Wording> parts;
  bool in_parts = false;
};

struct Model {
  std::string id;    // "virtual-mouse": lower-case letters, digits and '-'
  std::string name;  // "Virtual mouse"
  bool keyboard = false;
  std::vector<DeviceId> ids;
  std::vector<DeviceId> boot_ids;
  std::vector<FieldWords> fields;
  std::vector<std::pair<std::string, std::string>> aliases;  // a short name, and what it stands for
  KeyNames keys;
};

// Throws ConfigError, which names the place in the document, for anything that makes no sense.
Model ParseModel(std::string_view text);

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_WORDS_MODEL_H_
