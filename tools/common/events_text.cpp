#include "common/events_text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>
#include <optional>

#include "common/config.h"
#include "common/escaped_text.h"

namespace perilink::tools {
namespace {

constexpr std::string_view kKinds[] = {"press", "release", "other"};
constexpr std::string_view kSeparators = " ,\t\n";

std::string EventToText(const KeyEvent& event) {
  const size_t kind = std::min<size_t>(event.kind, std::size(kKinds) - 1);
  char rest[40];
  std::snprintf(rest, sizeof rest, ":%u:%02x%02x", unsigned{event.code}, unsigned{event.keys[0]},
                unsigned{event.keys[1]});
  std::string text = std::string(kKinds[kind]) + rest;
  const uint32_t delay = event.delay;
  if (delay != 0) text += "+" + std::to_string(delay);
  return text;
}

std::optional<unsigned> ParseNumber(std::string_view text, int base, unsigned most) {
  unsigned value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, base);
  if (error != std::errc() || stop != end || value > most) return std::nullopt;
  return value;
}

// What stands before the separator; the text keeps what stands behind it.
std::string_view TakeUntil(std::string_view& text, char separator) {
  const size_t at = std::min(text.find(separator), text.size());
  const std::string_view taken = text.substr(0, at);
  text.remove_prefix(std::min(at + 1, text.size()));
  return taken;
}

std::optional<KeyEvent> EventFromText(std::string_view text) {
  const std::string_view kind_text = TakeUntil(text, ':');
  const std::string_view code_text = TakeUntil(text, ':');
  const bool delayed = text.find('+') != std::string_view::npos;
  const std::string_view keys_text = TakeUntil(text, '+');
  const auto* const kind = std::find(std::begin(kKinds), std::end(kKinds), kind_text);
  const auto code = ParseNumber(code_text, 10, 0x0F);
  const auto keys = ParseNumber(keys_text, 16, 0xFFFF);
  const auto delay = delayed ? ParseNumber(text, 10, 0xFFFF) : 0u;
  if (kind == std::end(kKinds) || !code || !keys || keys_text.size() != 4 || !delay) {
    return std::nullopt;
  }
  KeyEvent event{};
  event.kind = static_cast<uint8_t>(kind - std::begin(kKinds));
  event.code = static_cast<uint8_t>(*code);
  event.keys[0] = static_cast<uint8_t>(*keys >> 8);
  event.keys[1] = static_cast<uint8_t>(*keys);
  event.delay = *delay;
  return event;
}

}  // namespace

std::string EventsToText(std::span<const KeyEvent> events) {
  std::string text;
  for (const KeyEvent& event : events)
    text += (text.empty() ? "" : " ") + EventToText(event);
  return text;
}

std::vector<KeyEvent> EventsFromText(std::string_view text) {
  std::vector<KeyEvent> events;
  while (true) {
    text.remove_prefix(std::min(text.find_first_not_of(kSeparators), text.size()));
    if (text.empty()) return events;
    const std::string_view word = text.substr(0, text.find_first_of(kSeparators));
    text.remove_prefix(word.size());
    const std::optional<KeyEvent> event = EventFromText(word);
    if (!event) {
      throw ConfigError("event " + std::to_string(events.size() + 1) + ", '" + EscapeText(word) +
                        "', is not KIND:CODE:KEYS+DELAY as in press:1:0400+10");
    }
    events.push_back(*event);
  }
}

}  // namespace perilink::tools
