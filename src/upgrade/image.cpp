#include "upgrade/image.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/ansi_text.h"

namespace perilink {

std::span<const uint8_t> CommandDescriptor::Command() const {
  return std::span(data).first(std::min<size_t>(length, sizeof(data)));
}

bool CheckImageHeader(const uint8_t* image) {
  if (image == nullptr) return false;
  const ImageHeader header = ReadImageHeader(image);
  if (header.checked_length > kHeaderBlockSize) return header.checksum == 0;
  uint32_t sum = 0;
  for (size_t i = offsetof(ImageHeader, payload_length); i < header.checked_length; ++i)
    sum += image[i];
  return header.checksum == 0x55555555u - sum;
}

ImageHeader ReadImageHeader(const uint8_t* image) {
  ImageHeader header;
  std::memcpy(&header, image, sizeof(header));
  return header;
}

uint64_t ImageSize(const ImageHeader& header) {
  return uint64_t{kHeaderBlockSize} + header.payload_length;
}

std::wstring ReadTextField(const TextField& field) {
  const char* end = std::find(std::begin(field), std::end(field), '\0');
  return NarrowToWide(std::string_view(field, static_cast<size_t>(end - field)));
}

}  // namespace perilink
