#include "words/events_text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>
#include <optional>

#include "common/json_text.h"
#include "common/suggestion.h"

namespace perilink::tools {
namespace {

constexpr std::string_view kKinds[] = {"press", "release", "other"};
constexpr std::string_view kSeparators = " ,\t\n";
constexpr uint8_t kPress = 0;
constexpr uint8_t kRelease = 1;

Key KeyOf(const KeyEvent& event) {
  return {event.code, static_cast<uint16_t>(event.keys[0] | event.keys[1] << 8)};
}

KeyEvent EventOf(uint8_t kind, const Key& key, uint32_t delay) {
  KeyEvent event{};
  event.kind = kind;
  event.code = key.code;
  event.keys[0] = static_cast<uint8_t>(key.usage);
  event.keys[1] = static_cast<uint8_t>(key.usage >> 8);
  event.delay = delay;
  return event;
}

std::string EventToText(const KeyEvent& event, const KeyNames& names) {
  const size_t kind = std::min<size_t>(event.kind, std::size(kKinds) - 1);
  std::string text = std::string(kKinds[kind]) + ":";
  if (const std::string name = names.NameOf(KeyOf(event)); !name.empty()) {
    text += name;
  } else {
    char rest[40];
    std::snprintf(rest, sizeof rest, "%u:%02x%02x", unsigned{event.code}, unsigned{event.keys[0]},
                  unsigned{event.keys[1]});
    text += rest;
  }
  const uint32_t delay = event.delay;
  if (delay != 0) text += "+" + std::to_string(delay);
  return text;
}

// Keys that are pressed one after another and released in the opposite order: "ctrl+c".
std::string ChordText(std::span<const KeyEvent> events, const KeyNames& names) {
  if (events.empty() || events.size() % 2 != 0) return "";
  std::string text;
  for (size_t i = 0; i < events.size() / 2; ++i) {
    const KeyEvent& press = events[i];
    const KeyEvent& release = events[events.size() - 1 - i];
    const std::string name = names.NameOf(KeyOf(press));
    const bool paired = press.kind == kPress && release.kind == kRelease &&
                        KeyOf(press) == KeyOf(release) && press.delay == 0 && release.delay == 0;
    if (!paired || name.empty()) return "";
    text += (i == 0 ? "" : "+") + name;
  }
  return text;
}

// ---- Reading -----------------------------------------------------------------------------------

class WordReader {
 public:
  WordReader(std::string_view word, size_t number, const KeyNames& names)
      : word_(word), rest_(word), number_(number), names_(names) {}

  void AddTo(std::vector<KeyEvent>& events) {
    if (word_.find(':') == std::string_view::npos) return AddChord(events);
    const std::string_view kind_text = TakeUntil(':');
    const auto* const kind = std::find(std::begin(kKinds), std::end(kKinds), kind_text);
    if (kind == std::end(kKinds)) {
      Refuse("'" + Quotable(kind_text) + "' is not one of press, release and other");
    }
    const bool numbered = rest_.find(':') != std::string_view::npos;
    const Key key = numbered ? NumberedKey() : NamedKey(TakeUntil('+'));
    events.push_back(EventOf(static_cast<uint8_t>(kind - std::begin(kKinds)), key, Delay()));
  }

 private:
  void AddChord(std::vector<KeyEvent>& events) {
    std::vector<Key> keys;
    while (!rest_.empty())
      keys.push_back(NamedKey(TakeUntil('+')));
    if (word_.back() == '+') Refuse("a key's name is missing at its end");
    for (const Key& key : keys)
      events.push_back(EventOf(kPress, key, 0));
    for (auto key = keys.rbegin(); key != keys.rend(); ++key)
      events.push_back(EventOf(kRelease, *key, 0));
  }

  Key NamedKey(std::string_view name) {
    if (names_.empty()) {
      Refuse(
          "keys have no names without a description of the device: KIND:CODE:KEYS is wanted, "
          "as in press:1:0400+10");
    }
    if (const std::optional<Key> key = names_.Find(name)) return *key;
    const std::vector<std::string> all = names_.All();
    Refuse("there is no key '" + Quotable(name) + "'" + DidYouMean(name, all) +
           " (a name as in press:a+10, or code and key bytes as in press:1:0400+10)");
  }

  Key NumberedKey() {
    const std::string_view code = TakeUntil(':');
    const std::string_view keys = TakeUntil('+');
    Key key{};
    key.code = static_cast<uint8_t>(Number(code, 10, 0x0F, "code"));
    if (keys.size() != 4) Refuse("the key bytes are four hexadecimal digits, as in press:1:0400");
    const unsigned bytes = Number(keys, 16, 0xFFFF, "key bytes");
    key.usage = static_cast<uint16_t>(bytes >> 8 | bytes << 8);
    return key;
  }

  uint32_t Delay() {
    const bool told = delay_follows_;
    return told ? Number(rest_, 10, 0xFFFF, "delay") : 0;
  }

  unsigned Number(std::string_view text, int base, unsigned most, const char* what) {
    unsigned value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    const bool digits =
        error == std::errc::result_out_of_range || (error == std::errc() && stop == end);
    if (!digits) {
      Refuse(std::string(what) + " '" + Quotable(text) +
             "' is not a number; right is, for example, "
             "press:1:0400+10");
    }
    if (error != std::errc() || value > most) {
      Refuse(std::string(what) + " " + Quotable(text) + " is out of range, 0 to " +
             std::to_string(most) + " is possible");
    }
    return value;
  }

  // What stands before the separator; the rest keeps what stands behind it.
  std::string_view TakeUntil(char separator) {
    const size_t at = std::min(rest_.find(separator), rest_.size());
    const std::string_view taken = rest_.substr(0, at);
    delay_follows_ = separator == '+' && at < rest_.size();
    rest_.remove_prefix(std::min(at + 1, rest_.size()));
    return taken;
  }

  [[noreturn]] void Refuse(const std::string& why) const {
    throw ConfigError("event " + std::to_string(number_) + ", '" + Quotable(word_) + "': " + why);
  }

  const std::string_view word_;
  std::string_view rest_;
  const size_t number_;
  const KeyNames& names_;
  bool delay_follows_ = false;
};

}  // namespace

std::string EventsToText(std::span<const KeyEvent> events, const KeyNames& names) {
  std::string text = ChordText(events, names);
  if (!text.empty()) return text;
  for (const KeyEvent& event : events)
    text += (text.empty() ? "" : " ") + EventToText(event, names);
  return text;
}

std::vector<KeyEvent> EventsFromText(std::string_view text, const KeyNames& names) {
  std::vector<KeyEvent> events;
  for (size_t number = 1;; ++number) {
    text.remove_prefix(std::min(text.find_first_not_of(kSeparators), text.size()));
    if (text.empty()) return events;
    const std::string_view word = text.substr(0, text.find_first_of(kSeparators));
    text.remove_prefix(word.size());
    WordReader(word, number, names).AddTo(events);
  }
}

}  // namespace perilink::tools
