// Values as people read them.
#ifndef PERILINK_TOOLS_PERICTL_TERMINAL_TEXT_H_
#define PERILINK_TOOLS_PERICTL_TERMINAL_TEXT_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace perictl {

// "0a1b"
std::string Hex16(unsigned value);
// "0x00010000"
std::string Hex32(uint32_t value);
// "0a 1b 2c", with another separator if wanted
std::string HexBytes(std::span<const uint8_t> bytes, char separator = ' ');
// "0a1b2c"
std::string HexDigits(std::span<const uint8_t> bytes);
// Bytes from outside, in which nothing can steer a terminal.
std::string SafeText(std::string_view bytes);
std::string Joined(const std::vector<std::string>& words, const char* separator);
// 0x0123 is "1.23"
std::string VersionText(int32_t version);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_TERMINAL_TEXT_H_
