// An image of the upgrade file: a header block, then the payload.
#ifndef PERILINK_SRC_UPGRADE_IMAGE_H_
#define PERILINK_SRC_UPGRADE_IMAGE_H_

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "perilink/protocol.h"

namespace perilink {

static_assert(std::endian::native == std::endian::little, "the file's integers are little-endian");

// The readable bytes of a file whose length its caller does not tell.
inline constexpr size_t kUnknownLength = SIZE_MAX;

// A text of the header: ends at the first NUL or with its field.
using TextField = char[PERILINK_UPGRADE_TEXT_SIZE];

// The bytes of the command; a length beyond the data is cut to them.
std::span<const uint8_t> CommandBytes(const UpgradeFileCommand& command);

// Whether the header block carries its right checksum. False for a null image. Reads no further
// than the header block.
bool CheckImageHeader(const uint8_t* image);

// The header of an image, which needs no alignment.
UpgradeFileHeader ReadImageHeader(const uint8_t* image);

// Header block and payload; exceeds 32 bits for a payload of nearly 4 GiB.
uint64_t ImageSize(const UpgradeFileHeader& header);

std::wstring ReadTextField(const TextField& field);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_IMAGE_H_
