#include "terminal/text.h"

#include <cstdio>

#include "common/escaped_text.h"

namespace perictl {

std::string Hex16(unsigned value) {
  char text[16];
  std::snprintf(text, sizeof text, "%04x", value & 0xFFFF);
  return text;
}

std::string Hex32(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(value));
  return text;
}

std::string HexBytes(std::span<const uint8_t> bytes, char separator) {
  std::string text;
  for (const uint8_t byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02x", byte);
    if (!text.empty()) text += separator;
    text += digits;
  }
  return text;
}

std::string HexDigits(std::span<const uint8_t> bytes) {
  std::string text = HexBytes(bytes);
  std::erase(text, ' ');
  return text;
}

std::string SafeText(std::string_view bytes) {
  return perilink::tools::EscapeText(bytes);
}

std::string Joined(const std::vector<std::string>& words, const char* separator) {
  std::string text;
  for (const std::string& word : words)
    text += (text.empty() ? "" : separator) + word;
  return text;
}

std::string VersionText(int32_t version) {
  const auto value = static_cast<unsigned>(version);
  char text[16];
  std::snprintf(text, sizeof text, "%x.%02x", (value >> 8) & 0xFF, value & 0xFF);
  return text;
}

}  // namespace perictl
