#include "utf8.h"

namespace perilink::platform {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

}  // namespace

bool IsScalar(char32_t c) {
  return c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF);
}

char32_t TakeUtf8(const uint8_t*& text, const uint8_t* end) {
  const uint8_t lead = *text++;
  if (lead < 0x80) return lead;
  int more = 0;
  uint8_t low = 0x80;  // bounds of the second byte: no overlong form, surrogate or excess
  uint8_t high = 0xBF;
  char32_t c = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    more = 1;
    c = lead & 0x1Fu;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    more = 2;
    c = lead & 0x0Fu;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    more = 3;
    c = lead & 0x07u;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return kReplacement;
  }
  for (; more > 0; --more) {
    if (text == end || *text < low || *text > high) return kReplacement;
    c = (c << 6) | (*text++ & 0x3Fu);
    low = 0x80;
    high = 0xBF;
  }
  return c;
}

int EncodeUtf8(char32_t c, char (&bytes)[4]) {
  const auto byte = [](char32_t value) { return static_cast<char>(static_cast<uint8_t>(value)); };
  if (!IsScalar(c)) c = kReplacement;
  if (c < 0x80) {
    bytes[0] = byte(c);
    return 1;
  }
  if (c < 0x800) {
    bytes[0] = byte(0xC0 | (c >> 6));
    bytes[1] = byte(0x80 | (c & 0x3F));
    return 2;
  }
  if (c < 0x10000) {
    bytes[0] = byte(0xE0 | (c >> 12));
    bytes[1] = byte(0x80 | ((c >> 6) & 0x3F));
    bytes[2] = byte(0x80 | (c & 0x3F));
    return 3;
  }
  bytes[0] = byte(0xF0 | (c >> 18));
  bytes[1] = byte(0x80 | ((c >> 12) & 0x3F));
  bytes[2] = byte(0x80 | ((c >> 6) & 0x3F));
  bytes[3] = byte(0x80 | (c & 0x3F));
  return 4;
}

}  // namespace perilink::platform
