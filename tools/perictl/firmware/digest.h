// A digest by which people tell that two files are the same.
#ifndef PERILINK_TOOLS_PERICTL_FIRMWARE_DIGEST_H_
#define PERILINK_TOOLS_PERICTL_FIRMWARE_DIGEST_H_

#include <cstdint>
#include <span>
#include <string>

namespace perictl {

// SHA-256, as 64 hexadecimal digits.
std::string Sha256(std::span<const uint8_t> bytes);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_FIRMWARE_DIGEST_H_
