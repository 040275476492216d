// Device paths and names are compared without regard to the case of their ASCII letters.
#ifndef PERILINK_PLATFORM_SRC_PATH_H_
#define PERILINK_PLATFORM_SRC_PATH_H_

#include <algorithm>
#include <string>
#include <string_view>

namespace perilink::platform {

inline wchar_t LowerAscii(wchar_t c) {
  return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

inline bool SamePath(std::wstring_view a, std::wstring_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](wchar_t x, wchar_t y) { return LowerAscii(x) == LowerAscii(y); });
}

inline std::wstring LowerAscii(std::wstring text) {
  std::transform(text.begin(), text.end(), text.begin(), [](wchar_t c) { return LowerAscii(c); });
  return text;
}

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_PATH_H_
