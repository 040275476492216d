#include "words/key_names.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <span>

#include "common/ascii.h"

namespace perilink::tools {
namespace {

// Names of usages in a row, from `first` on. An alias follows the name that is told.
struct Names {
  uint16_t first;
  std::vector<const char*> names;
};
struct Alias {
  const char* alias;
  const char* name;
};

const std::vector<Names>& NamesOf(UsagePage page) {
  static const std::vector<Names> keyboard = {
      {0x04, {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l", "m",
              "n", "o", "p", "q", "r", "s", "t", "u", "v", "w", "x", "y", "z"}},
      {0x1E, {"1", "2", "3", "4", "5", "6", "7", "8", "9", "0"}},
      {0x28,
       {"enter", "escape", "backspace", "tab", "space", "minus", "equal", "leftbracket",
        "rightbracket", "backslash", "nonus_hash", "semicolon", "apostrophe", "grave", "comma",
        "period", "slash", "capslock"}},
      {0x3A, {"f1", "f2", "f3", "f4", "f5", "f6", "f7", "f8", "f9", "f10", "f11", "f12"}},
      {0x46,
       {"printscreen", "scrolllock", "pause", "insert", "home", "pageup", "delete", "end",
        "pagedown", "right", "left", "down", "up", "numlock"}},
      {0x54,
       {"keypad_slash", "keypad_asterisk", "keypad_minus", "keypad_plus", "keypad_enter",
        "keypad_1", "keypad_2", "keypad_3", "keypad_4", "keypad_5", "keypad_6", "keypad_7",
        "keypad_8", "keypad_9", "keypad_0", "keypad_period"}},
      {0x64, {"nonus_backslash", "application", "power", "keypad_equal"}},
      {0x68, {"f13", "f14", "f15", "f16", "f17", "f18", "f19", "f20", "f21", "f22", "f23", "f24"}},
      {0x74,
       {"execute", "help", "menu", "select", "stop", "again", "undo", "cut", "copy", "paste",
        "find", "mute", "volumeup", "volumedown"}},
      {0xE0,
       {"leftcontrol", "leftshift", "leftalt", "leftgui", "rightcontrol", "rightshift", "rightalt",
        "rightgui"}},
  };
  static const std::vector<Names> buttons = {
      {1,
       {"button1", "button2", "button3", "button4", "button5", "button6", "button7", "button8",
        "button9", "button10", "button11", "button12", "button13", "button14", "button15",
        "button16"}},
  };
  static const std::vector<Names> consumer = {
      {0x6F, {"brightnessup", "brightnessdown"}},
      {0xB0,
       {"play", "pause", "record", "fastforward", "rewind", "nexttrack", "previoustrack", "stop",
        "eject"}},
      {0xCD, {"playpause"}},
      {0xE2, {"mute"}},
      {0xE9, {"volumeup", "volumedown"}},
      {0x183, {"mediaplayer"}},
      {0x18A, {"mail"}},
      {0x192, {"calculator"}},
      {0x196, {"browser"}},
      {0x221, {"search", "homepage", "back", "forward", "browser_stop", "refresh"}},
  };
  switch (page) {
    case UsagePage::kButtons:
      return buttons;
    case UsagePage::kConsumer:
      return consumer;
    case UsagePage::kKeyboard:
      break;
  }
  return keyboard;
}

constexpr Alias kAliases[] = {
    {"ctrl", "leftcontrol"},     {"control", "leftcontrol"},
    {"leftctrl", "leftcontrol"}, {"shift", "leftshift"},
    {"alt", "leftalt"},          {"win", "leftgui"},
    {"gui", "leftgui"},          {"cmd", "leftgui"},
    {"super", "leftgui"},        {"rightctrl", "rightcontrol"},
    {"altgr", "rightalt"},       {"esc", "escape"},
    {"return", "enter"},         {"del", "delete"},
    {"ins", "insert"},           {"pgup", "pageup"},
    {"pgdn", "pagedown"},        {"print", "printscreen"},
    {"caps", "capslock"},
};

std::optional<uint16_t> UsageIn(UsagePage page, std::string_view name) {
  for (const Names& run : NamesOf(page)) {
    const auto found = std::find(run.names.begin(), run.names.end(), name);
    if (found != run.names.end()) {
      return static_cast<uint16_t>(run.first + (found - run.names.begin()));
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<UsagePage> PageByName(std::string_view name) {
  if (name == "keyboard") return UsagePage::kKeyboard;
  if (name == "buttons") return UsagePage::kButtons;
  if (name == "consumer") return UsagePage::kConsumer;
  return std::nullopt;
}

std::optional<Key> KeyNames::Find(std::string_view name) const {
  std::string wanted = Lower(name);
  const auto* const alias = std::find_if(std::begin(kAliases), std::end(kAliases),
                                         [&](const Alias& it) { return it.alias == wanted; });
  if (alias != std::end(kAliases)) wanted = alias->name;
  for (const auto& [code, page] : pages_) {
    if (const std::optional<uint16_t> usage = UsageIn(page, wanted)) return Key{code, *usage};
  }
  return std::nullopt;
}

std::string KeyNames::NameOf(const Key& key) const {
  for (const auto& [code, page] : pages_) {
    if (code != key.code) continue;
    for (const Names& run : NamesOf(page)) {
      if (key.usage < run.first || key.usage - run.first >= std::ssize(run.names)) continue;
      std::string name = run.names[key.usage - run.first];
      if (Find(name) == key) return name;
    }
  }
  return "";
}

std::vector<std::string> KeyNames::All() const {
  std::vector<std::string> all;
  for (const auto& [code, page] : pages_) {
    for (const Names& run : NamesOf(page))
      all.insert(all.end(), run.names.begin(), run.names.end());
  }
  return all;
}

}  // namespace perilink::tools
