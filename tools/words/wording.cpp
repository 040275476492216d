#include "words/wording.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "common/ascii.h"
#include "common/suggestion.h"
#include "words/colors.h"

namespace perilink::tools {
namespace {

constexpr double kLargestExact = 9007199254740992.0;  // of a double's whole numbers

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ')
    text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ')
    text.remove_suffix(1);
  return text;
}

std::string WithUnit(const std::string& text, const Wording& wording) {
  return wording.unit.empty() ? text : text + " " + wording.unit;
}

// Without the unit, if it ends in it.
std::string_view WithoutUnit(std::string_view text, const Wording& wording) {
  const std::string unit = Lower(wording.unit);
  if (!unit.empty() && text.size() > unit.size() &&
      Lower(text.substr(text.size() - unit.size())) == unit) {
    text.remove_suffix(unit.size());
  }
  return Trimmed(text);
}

std::vector<uint8_t> Picked(std::span<const uint8_t> field, const std::vector<size_t>& positions) {
  std::vector<uint8_t> bytes;
  for (const size_t position : positions)
    bytes.push_back(field[position]);
  return bytes;
}

void Put(std::span<uint8_t> field, const std::vector<size_t>& positions,
         std::span<const uint8_t> bytes) {
  for (size_t i = 0; i < positions.size(); ++i)
    field[positions[i]] = bytes[i];
}

uint64_t NumberOf(std::span<const uint8_t> bytes) {
  uint64_t number = 0;
  for (size_t i = bytes.size(); i > 0; --i)
    number = number << 8 | bytes[i - 1];
  return number;
}

std::vector<uint8_t> BytesOf(uint64_t number, size_t count) {
  std::vector<uint8_t> bytes(count);
  for (uint8_t& byte : bytes) {
    byte = static_cast<uint8_t>(number);
    number >>= 8;
  }
  return bytes;
}

double MostOf(size_t bytes) {
  return std::ldexp(1.0, static_cast<int>(8 * bytes)) - 1;
}

Json JsonNumber(double number) {
  if (number == std::floor(number) && std::fabs(number) < kLargestExact) {
    return static_cast<int64_t>(number);
  }
  return number;
}

[[noreturn]] void Refuse(const std::string& name, const std::string& why) {
  throw ConfigError(name + ": " + why);
}

// ---- Numbers -----------------------------------------------------------------------------------

std::optional<Words> NumberInWords(const Wording& wording, std::span<const uint8_t> bytes) {
  const double number = wording.scale * static_cast<double>(NumberOf(bytes)) + wording.offset;
  if ((wording.least && number < *wording.least) || (wording.most && number > *wording.most)) {
    return std::nullopt;
  }
  return Words{WithUnit(NumberText(number), wording), JsonNumber(number)};
}

// People's value for a raw number, or for the nearest end of what is possible.
std::string At(const Wording& wording, double raw) {
  return WithUnit(NumberText(wording.scale * raw + wording.offset), wording);
}

std::vector<uint8_t> NumberFromWords(const Wording& wording, std::string_view text,
                                     const std::string& name) {
  const std::string word(WithoutUnit(text, wording));
  double number = 0;
  if (const std::optional<uint64_t> whole = NumberFromText(word)) {
    number = static_cast<double>(*whole);
  } else {
    const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc() || stop != word.data() + word.size() || !std::isfinite(number)) {
      Refuse(name, "'" + Quotable(text) + "' is not a number" +
                       (wording.unit.empty() ? "" : " of " + wording.unit) + ", as in " +
                       NumberText(wording.least.value_or(wording.offset)) + wording.unit);
    }
  }
  const double raw_most = MostOf(wording.bytes.size());
  const double ends[] = {wording.offset, wording.scale * raw_most + wording.offset};
  const double least = wording.least.value_or(std::min(ends[0], ends[1]));
  const double most = wording.most.value_or(std::max(ends[0], ends[1]));
  if (number < least || number > most) {
    Refuse(name, WithUnit(NumberText(number), wording) + " is out of range, " + NumberText(least) +
                     " to " + WithUnit(NumberText(most), wording) + " is possible");
  }
  const double raw = (number - wording.offset) / wording.scale;
  const double nearest = std::round(raw);
  if (std::fabs(raw - nearest) > 1e-6) {
    Refuse(name, WithUnit(NumberText(number), wording) + " is not possible; " +
                     At(wording, std::floor(raw)) + " and " + At(wording, std::ceil(raw)) + " are");
  }
  if (nearest < 0 || nearest > raw_most) {
    Refuse(name, WithUnit(NumberText(number), wording) + " is more than the device has room for");
  }
  return BytesOf(static_cast<uint64_t>(nearest), wording.bytes.size());
}

// ---- Choices -----------------------------------------------------------------------------------

std::string ChoiceText(const Choice& choice, const Wording& wording) {
  return WithUnit(choice.name, wording);
}

std::vector<uint8_t> ChoiceFromWords(const Wording& wording, std::string_view text,
                                     const std::string& name) {
  const std::string word = Lower(WithoutUnit(text, wording));
  std::string all;
  std::vector<std::string> names;
  for (const Choice& choice : wording.choices) {
    if (Lower(choice.name) == word || Lower(choice.name) == Lower(Trimmed(text))) {
      return choice.bytes;
    }
    names.push_back(choice.name);
    all += (all.empty() ? "" : ", ") + ChoiceText(choice, wording);
  }
  Refuse(name, "'" + Quotable(text) + "' is not one of " + all + DidYouMean(word, names));
}

}  // namespace

std::optional<Words> InWords(const Wording& wording, std::span<const uint8_t> field) {
  const std::vector<uint8_t> bytes = Picked(field, wording.bytes);
  for (const std::vector<size_t>& copy : wording.copies) {
    if (Picked(field, copy) != bytes) return std::nullopt;
  }
  switch (wording.type) {
    case WordingType::kNumber:
      return NumberInWords(wording, bytes);
    case WordingType::kSwitch:
      if (NumberOf(bytes) > 1) return std::nullopt;
      return Words{bytes[0] != 0 ? "on" : "off", bytes[0] != 0};
    case WordingType::kColor: {
      const std::string text = ColorText({bytes[0], bytes[1], bytes[2]});
      return Words{text, text};
    }
    case WordingType::kChoice:
      for (const Choice& choice : wording.choices) {
        if (choice.bytes != bytes) continue;
        const std::optional<uint64_t> number = NumberFromText(choice.name);
        return Words{ChoiceText(choice, wording), number ? Json(*number) : Json(choice.name)};
      }
      return std::nullopt;
    case WordingType::kBytes:
      return Words{HexText(bytes), HexText(bytes)};
  }
  return std::nullopt;
}

void FromWords(const Wording& wording, std::string_view text, const std::string& name,
               std::span<uint8_t> field) {
  std::vector<uint8_t> bytes;
  switch (wording.type) {
    case WordingType::kNumber:
      bytes = NumberFromWords(wording, text, name);
      break;
    case WordingType::kSwitch: {
      const std::optional<bool> on = SwitchFromText(Lower(Trimmed(text)));
      if (!on) Refuse(name, "'" + Quotable(text) + "' is neither on nor off");
      bytes = BytesOf(*on ? 1 : 0, wording.bytes.size());
      break;
    }
    case WordingType::kColor: {
      const std::optional<Color> color = ColorFromText(Lower(Trimmed(text)));
      const std::vector<std::string> names = ColorNames();
      if (!color) {
        Refuse(name, "'" + Quotable(text) + "' is not a colour, as in #ff8000 or red" +
                         DidYouMean(text, names));
      }
      bytes.assign(color->begin(), color->end());
      break;
    }
    case WordingType::kChoice:
      bytes = ChoiceFromWords(wording, text, name);
      break;
    case WordingType::kBytes: {
      const auto read = BytesFromHex(text, wording.bytes.size());
      if (!read) {
        Refuse(name, "'" + Quotable(text) + "' is not " + std::to_string(wording.bytes.size()) +
                         " bytes in hexadecimal, as in " + HexText(Picked(field, wording.bytes)));
      }
      bytes = *read;
      break;
    }
  }
  Put(field, wording.bytes, bytes);
  for (const std::vector<size_t>& copy : wording.copies)
    Put(field, copy, bytes);
}

std::string HexText(std::span<const uint8_t> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const uint8_t byte : bytes) {
    if (!text.empty()) text += ' ';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

std::optional<std::vector<uint8_t>> BytesFromHex(std::string_view text, size_t count) {
  std::string digits;
  for (const char c : text) {
    if (c == ' ' || c == ':') continue;
    if (std::isxdigit(static_cast<unsigned char>(c)) == 0) return std::nullopt;
    digits += c;
  }
  if (digits.size() != 2 * count) return std::nullopt;
  std::vector<uint8_t> bytes(count);
  for (size_t i = 0; i < count; ++i)
    std::from_chars(digits.data() + 2 * i, digits.data() + 2 * i + 2, bytes[i], 16);
  return bytes;
}

std::optional<uint64_t> NumberFromText(std::string_view text) {
  int base = 10;
  if (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X") {
    base = 16;
    text.remove_prefix(2);
  }
  uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (text.empty() || error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::optional<bool> SwitchFromText(std::string_view text) {
  if (text == "on" || text == "yes" || text == "true" || text == "1") return true;
  if (text == "off" || text == "no" || text == "false" || text == "0") return false;
  return std::nullopt;
}

std::string NumberText(double number) {
  char text[40];
  std::snprintf(text, sizeof text, "%.6f", number);
  std::string trimmed = text;
  trimmed.erase(trimmed.find_last_not_of('0') + 1);
  if (trimmed.back() == '.') trimmed.pop_back();
  return trimmed == "-0" ? "0" : trimmed;
}

}  // namespace perilink::tools
