// How one field's bytes read to people, and what people may write for them: the part of a model's
// description that is about a field.
#ifndef PERILINK_TOOLS_WORDS_WORDING_H_
#define PERILINK_TOOLS_WORDS_WORDING_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/json_text.h"

namespace perilink::tools {

enum class WordingType { kNumber, kChoice, kSwitch, kColor, kBytes };

struct Choice {
  std::string name;
  std::vector<uint8_t> bytes;
};

struct Wording {
  std::string name;   // instead of the record's; empty: that
  std::string label;  // what it is, in a few words
  bool hidden = false;

  WordingType type = WordingType::kNumber;
  std::string unit;
  // Which of the field's bytes it is, the lowest first, and where the same stands once more.
  std::vector<size_t> bytes;
  std::vector<std::vector<size_t>> copies;
  // Of a number: people's value is scale * number + offset, and lies between these.
  double scale = 1;
  double offset = 0;
  std::optional<double> least;
  std::optional<double> most;
  std::vector<Choice> choices;
};

// A value in words. Without text the bytes hold something that the description does not know.
struct Words {
  std::string text;  // "800 dpi"
  Json value;        // 800
};

std::optional<Words> InWords(const Wording& wording, std::span<const uint8_t> field);

// Puts the value into those of the field's bytes that the wording is about. `name` is for the
// messages of the ConfigError that it throws, which say what is possible.
void FromWords(const Wording& wording, std::string_view text, const std::string& name,
               std::span<uint8_t> field);

// Bytes as "20 40 c0".
std::string HexText(std::span<const uint8_t> bytes);
// The way back, with or without the spaces; nothing unless there are `count` bytes.
std::optional<std::vector<uint8_t>> BytesFromHex(std::string_view text, size_t count);
// A whole number, decimal or as 0x12.
std::optional<uint64_t> NumberFromText(std::string_view text);
// "on", "off" and what people write for them.
std::optional<bool> SwitchFromText(std::string_view text);
// 800, 12.5: without zeros at the end.
std::string NumberText(double number);

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_WORDS_WORDING_H_
