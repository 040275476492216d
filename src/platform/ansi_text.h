// Text between the system's ANSI code page and wide strings.
#ifndef PERILINK_SRC_PLATFORM_ANSI_TEXT_H_
#define PERILINK_SRC_PLATFORM_ANSI_TEXT_H_

#include <string>
#include <string_view>

namespace perilink {

// Bytes that are no text in the code page become the system's replacement character; text that the
// system refuses altogether becomes an empty string.
std::wstring NarrowToWide(std::string_view text);

// The same for an argument of an export, up to its NUL; null counts as empty.
inline std::wstring NarrowToWide(const char* text) {
  return NarrowToWide(text == nullptr ? std::string_view() : std::string_view(text));
}

// Characters that the code page lacks become its default character, normally '?'.
std::string WideToNarrow(std::wstring_view text);

}  // namespace perilink

#endif  // PERILINK_SRC_PLATFORM_ANSI_TEXT_H_
