// Colours as people write them.
#ifndef PERILINK_TOOLS_WORDS_COLORS_H_
#define PERILINK_TOOLS_WORDS_COLORS_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace perilink::tools {

using Color = std::array<uint8_t, 3>;  // red, green, blue

// "#ff0000"
std::string ColorText(const Color& color);
// The same, #f00, or a name as style sheets use it; nothing for anything else.
std::optional<Color> ColorFromText(std::string_view text);
std::vector<std::string> ColorNames();

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_WORDS_COLORS_H_
