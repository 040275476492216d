// The registry's contents, and the text that they are kept as:
//
//   perilink registry 1
//   key "Software\\DeviceBatteryOptimize"
//   value "BatteryValue_1a2b3c" text "01736240585-85"
//   value "Other" 3 0102ff
//
// A value belongs to the key above it. A text value (REG_SZ) is written as text, exactly as long as
// its data; any other as its type and its bytes. In quotes, a backslash and a quote have a
// backslash before them, and \x{1f} stands for a character that isn't printed.
#ifndef PERILINK_PLATFORM_SRC_REGISTRY_TREE_H_
#define PERILINK_PLATFORM_SRC_REGISTRY_TREE_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "perilink_platform/types.h"

namespace perilink::platform {

struct RegistryValue {
  std::wstring name;
  DWORD type = 0;
  std::vector<uint8_t> data;
};

struct RegistryNode {
  std::wstring path;                             // from the root, backslashes between its parts
  std::map<std::wstring, RegistryValue> values;  // by lower-case name
};

// Whether the parts of a path, which backslashes separate, are names of keys: 1 to 255 characters.
bool IsKeyPath(std::wstring_view path);

// Takes memory in proportion to its text: the keys above one that was created exist, but have no
// nodes of their own.
class RegistryTree {
 public:
  // Null if there is no such key. The root, "", always exists.
  const RegistryNode* Find(const std::wstring& path) const;
  // Creates the key, whose path is one, as needed.
  RegistryNode& Ensure(const std::wstring& path);

  std::string ToText() const;
  // Reads what ToText wrote, leaving out lines that are damaged. False if the text isn't of this
  // form at all: nothing is kept then.
  bool FromText(std::string_view text);

 private:
  bool TakeLine(std::string_view line, RegistryNode*& node);

  std::map<std::wstring, RegistryNode> nodes_;  // by lower-case path
};

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_REGISTRY_TREE_H_
