// Values as people read them.
#ifndef PERILINK_TOOLS_PERICTL_TEXT_H_
#define PERILINK_TOOLS_PERICTL_TEXT_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace perictl {

// "0a1b"
std::string Hex16(unsigned value);
// "0x00010000"
std::string Hex32(uint32_t value);
// "0a 1b 2c", with another separator if wanted
std::string HexBytes(std::span<const uint8_t> bytes, char separator = ' ');
// Bytes from outside, in which nothing can steer a terminal.
std::string SafeText(std::string_view bytes);
// 0x0123 is "1.23"
std::string VersionText(int32_t version);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_TEXT_H_
