// Keys by their names, as the HID usage tables call them: "a", "enter", "leftcontrol", "playpause".
#ifndef PERILINK_TOOLS_WORDS_KEY_NAMES_H_
#define PERILINK_TOOLS_WORDS_KEY_NAMES_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace perilink::tools {

enum class UsagePage : uint8_t { kKeyboard = 0x07, kButtons = 0x09, kConsumer = 0x0C };

// "keyboard", "buttons", "consumer"; nothing for another name.
std::optional<UsagePage> PageByName(std::string_view name);

// A key of a device: the code of its events, and the two key bytes as a usage, low byte first.
struct Key {
  uint8_t code;
  uint16_t usage;
  bool operator==(const Key&) const = default;
};

// Which code of a device's events stands for which page. Without any, keys have no names.
class KeyNames {
 public:
  void Add(uint8_t code, UsagePage page) { pages_.emplace_back(code, page); }
  bool empty() const { return pages_.empty(); }

  // Upper and lower case are the same, "ctrl", "shift", "alt" and "win" are the left ones. Of a
  // name that stands in several pages, the first page's.
  std::optional<Key> Find(std::string_view name) const;
  // A name that Find turns into this key again; empty when there is none.
  std::string NameOf(const Key& key) const;
  // All that Find knows, save other names for the same.
  std::vector<std::string> All() const;

 private:
  std::vector<std::pair<uint8_t, UsagePage>> pages_;
};

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_WORDS_KEY_NAMES_H_
