#include "common/escaped_text.h"

namespace perilink::tools {
namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";

bool IsContinuation(uint8_t byte) {
  return (byte & 0xC0) == 0x80;
}

// Bytes of the printable UTF-8 character at the start, 0 if there is none: overlong forms,
// surrogates and control characters are none.
size_t CharacterLength(std::span<const uint8_t> bytes) {
  const uint8_t lead = bytes[0];
  if (lead < 0x80) return lead >= 0x20 && lead != 0x7F ? 1 : 0;
  const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || bytes.size() < length) return 0;
  uint32_t code = lead & (0xFFu >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    if (!IsContinuation(bytes[i])) return 0;
    code = code << 6 | (bytes[i] & 0x3Fu);
  }
  const uint32_t least = length == 4 ? 0x10000 : length == 3 ? 0x800 : 0xA0;
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  return code >= least && code <= 0x10FFFF && !surrogate ? length : 0;
}

}  // namespace

std::string EscapeText(std::span<const uint8_t> bytes) {
  std::string text;
  while (!bytes.empty()) {
    const size_t length = CharacterLength(bytes);
    if (length == 0) {
      text += "\\x";
      text += kHexDigits[bytes[0] >> 4];
      text += kHexDigits[bytes[0] & 0x0F];
    } else {
      text.append(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
      if (bytes[0] == '\\') text += '\\';
    }
    bytes = bytes.subspan(length == 0 ? 1 : length);
  }
  return text;
}

std::optional<std::vector<uint8_t>> UnescapeText(std::string_view text) {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      bytes.push_back(static_cast<uint8_t>(text[i]));
    } else if (text.substr(i + 1, 1) == "\\") {
      bytes.push_back('\\');
      ++i;
    } else {
      if (text.size() < i + 4 || text[i + 1] != 'x') return std::nullopt;
      const size_t high = kHexDigits.find(text[i + 2]);
      const size_t low = kHexDigits.find(text[i + 3]);
      if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
      bytes.push_back(static_cast<uint8_t>(high << 4 | low));
      i += 3;
    }
  }
  return bytes;
}

}  // namespace perilink::tools
