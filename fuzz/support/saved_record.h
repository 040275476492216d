// The saved battery record's grammar once more, from its end and with no arithmetic of its own.
#ifndef PERILINK_FUZZ_SUPPORT_SAVED_RECORD_H_
#define PERILINK_FUZZ_SUPPORT_SAVED_RECORD_H_

#include <algorithm>
#include <string_view>

#include "battery/saved_record.h"

namespace perilink::fuzz {

inline SavedRecord ExpectedRecord(std::wstring_view text) {
  const auto is_digit = [](wchar_t c) { return c >= L'0' && c <= L'9'; };
  if (std::count(text.begin(), text.end(), L'-') != 1 ||
      !std::all_of(text.begin(), text.end(), [&](wchar_t c) { return c == L'-' || is_digit(c); }))
    return {};
  const auto number = [&](std::wstring_view digits) {
    uint32_t value = 0;
    uint32_t place = 1;
    for (auto it = digits.rbegin(); it != digits.rend(); ++it, place *= 10)
      value += static_cast<uint32_t>(*it - L'0') * place;
    return value;
  };
  const size_t minus = text.find(L'-');
  return {number(text.substr(0, minus)), static_cast<uint8_t>(number(text.substr(minus + 1)))};
}

inline bool SameRecord(const SavedRecord& a, const SavedRecord& b) {
  return a.time == b.time && a.level == b.level;
}

}  // namespace perilink::fuzz

#endif  // PERILINK_FUZZ_SUPPORT_SAVED_RECORD_H_
