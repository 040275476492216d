#include "words/colors.h"

#include <cstdio>

namespace perilink::tools {
namespace {

struct Named {
  const char* name;
  Color color;
};

constexpr Named kNamed[] = {
    {"black", {0x00, 0x00, 0x00}},   {"white", {0xFF, 0xFF, 0xFF}},
    {"red", {0xFF, 0x00, 0x00}},     {"lime", {0x00, 0xFF, 0x00}},
    {"blue", {0x00, 0x00, 0xFF}},    {"yellow", {0xFF, 0xFF, 0x00}},
    {"cyan", {0x00, 0xFF, 0xFF}},    {"aqua", {0x00, 0xFF, 0xFF}},
    {"magenta", {0xFF, 0x00, 0xFF}}, {"fuchsia", {0xFF, 0x00, 0xFF}},
    {"green", {0x00, 0x80, 0x00}},   {"orange", {0xFF, 0xA5, 0x00}},
    {"purple", {0x80, 0x00, 0x80}},  {"violet", {0xEE, 0x82, 0xEE}},
    {"pink", {0xFF, 0xC0, 0xCB}},    {"brown", {0xA5, 0x2A, 0x2A}},
    {"gold", {0xFF, 0xD7, 0x00}},    {"teal", {0x00, 0x80, 0x80}},
    {"navy", {0x00, 0x00, 0x80}},    {"maroon", {0x80, 0x00, 0x00}},
    {"olive", {0x80, 0x80, 0x00}},   {"indigo", {0x4B, 0x00, 0x82}},
    {"gray", {0x80, 0x80, 0x80}},    {"silver", {0xC0, 0xC0, 0xC0}},
};

std::optional<uint8_t> DigitOf(char c) {
  if (c >= '0' && c <= '9') return static_cast<uint8_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<uint8_t>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<uint8_t>(c - 'A' + 10);
  return std::nullopt;
}

}  // namespace

std::string ColorText(const Color& color) {
  char text[8];
  std::snprintf(text, sizeof text, "#%02x%02x%02x", color[0], color[1], color[2]);
  return text;
}

std::optional<Color> ColorFromText(std::string_view text) {
  for (const Named& it : kNamed) {
    if (text == it.name) return it.color;
  }
  if (text.empty() || text[0] != '#' || (text.size() != 4 && text.size() != 7)) return std::nullopt;
  const size_t digits = (text.size() - 1) / 3;
  Color color{};
  for (size_t i = 0; i < color.size(); ++i) {
    const std::optional<uint8_t> high = DigitOf(text[1 + i * digits]);
    const std::optional<uint8_t> low = DigitOf(text[i * digits + digits]);
    if (!high || !low) return std::nullopt;
    color[i] = static_cast<uint8_t>(*high << 4 | *low);
  }
  return color;
}

std::vector<std::string> ColorNames() {
  std::vector<std::string> names;
  for (const Named& it : kNamed)
    names.push_back(it.name);
  return names;
}

}  // namespace perilink::tools
