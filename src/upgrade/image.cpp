#include "upgrade/image.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/ansi_text.h"

namespace perilink {

std::span<const uint8_t> CommandBytes(const UpgradeFileCommand& command) {
  return std::span(command.data).first(std::min<size_t>(command.length, sizeof(command.data)));
}

bool CheckImageHeader(const uint8_t* image) {
  if (image == nullptr) return false;
  const UpgradeFileHeader header = ReadImageHeader(image);
  return header.checksum == Perilink_UpgradeChecksum(image, header.checked_length);
}

UpgradeFileHeader ReadImageHeader(const uint8_t* image) {
  UpgradeFileHeader header;
  std::memcpy(&header, image, sizeof(header));
  return header;
}

uint64_t ImageSize(const UpgradeFileHeader& header) {
  return uint64_t{PERILINK_UPGRADE_HEADER_SIZE} + header.payload_length;
}

std::wstring ReadTextField(const TextField& field) {
  const char* end = std::find(std::begin(field), std::end(field), '\0');
  return NarrowToWide(std::string_view(field, static_cast<size_t>(end - field)));
}

}  // namespace perilink
