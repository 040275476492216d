// Cutting one image out of an upgrade file.
#ifndef PERILINK_SRC_UPGRADE_FILE_SPLIT_H_
#define PERILINK_SRC_UPGRADE_FILE_SPLIT_H_

#include <cstddef>
#include <cstdint>
#include <span>

namespace perilink {

// The bytes of the file's main image (`which` 0) or slave image (any other), within the file; empty
// when the file has no valid one. Parses with records of its own and writes the parser's log lines.
// Nothing beyond `readable` bytes is read, and no image that reaches beyond them is found.
std::span<const uint8_t> FindImage(const uint8_t* file, size_t readable, int32_t which);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_FILE_SPLIT_H_
