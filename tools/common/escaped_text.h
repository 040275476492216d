// Bytes as text that loses nothing: a device's names are in whatever encoding their host chose.
#ifndef PERILINK_TOOLS_COMMON_ESCAPED_TEXT_H_
#define PERILINK_TOOLS_COMMON_ESCAPED_TEXT_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace perilink::tools {

// Printable characters of UTF-8 stand for themselves, \\ for a backslash, \x00 to \xff for every
// other byte. The result is always valid UTF-8.
std::string EscapeText(std::span<const uint8_t> bytes);
inline std::string EscapeText(std::string_view bytes) {
  return EscapeText({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
}

// The way back; nothing when a backslash begins anything else.
std::optional<std::vector<uint8_t>> UnescapeText(std::string_view text);

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_COMMON_ESCAPED_TEXT_H_
