// Text whose letters are ASCII: names, words, paths.
#ifndef PERILINK_TOOLS_COMMON_ASCII_H_
#define PERILINK_TOOLS_COMMON_ASCII_H_

#include <string>
#include <string_view>

namespace perilink::tools {

// In small letters, whatever the locale.
inline std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_COMMON_ASCII_H_
