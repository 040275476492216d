// An image of the upgrade file: a header block of 8192 bytes, then the payload. The header's layout
// is declared here once; nothing else knows an offset.
#ifndef PERILINK_SRC_UPGRADE_IMAGE_H_
#define PERILINK_SRC_UPGRADE_IMAGE_H_

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace perilink {

static_assert(std::endian::native == std::endian::little, "the file's integers are little-endian");

inline constexpr size_t kHeaderBlockSize = 8192;

// The readable bytes of a file whose length its caller does not tell.
inline constexpr size_t kUnknownLength = SIZE_MAX;

// Narrow text in the ANSI code page; ends at the first zero byte or with the field.
using TextField = char[64];

#pragma pack(push, 1)

// A command that the file brings for the device.
struct CommandDescriptor {
  uint8_t length;              // bytes to send, as the file claims
  uint8_t use_feature_report;  // non-zero: sent as a feature report; zero: as an output report
  uint8_t data[62];

  // The command itself; a length beyond the data is cut to them.
  std::span<const uint8_t> Command() const;
  std::span<const uint8_t, 64> Bytes() const { return std::span<const uint8_t, 64>(&length, 64); }
};
static_assert(sizeof(CommandDescriptor) == 64);
static_assert(offsetof(CommandDescriptor, data) == 2);

// The part of the header block that is read.
struct ImageHeader {
  uint32_t checksum;
  uint32_t checked_length;  // end of the checksummed range
  uint32_t payload_length;
  uint32_t slave_offset;  // of the slave image in the file; 0: none. Main image only
  uint8_t reserved[7];
  TextField file_id;
  TextField ic_name;
  TextField boot_input_end_point;
  TextField boot_output_end_point;
  TextField normal_input_end_point;
  TextField normal_output_end_point;
  CommandDescriptor reset_command;
  CommandDescriptor start_command;
  CommandDescriptor packet_template;
  TextField senser_name;
  TextField product_name;
  uint8_t next;  // first byte of the unread rest
};
static_assert(sizeof(ImageHeader) == 728);
static_assert(offsetof(ImageHeader, checked_length) == 4);
static_assert(offsetof(ImageHeader, payload_length) == 8);
static_assert(offsetof(ImageHeader, slave_offset) == 12);
static_assert(offsetof(ImageHeader, file_id) == 23);
static_assert(offsetof(ImageHeader, ic_name) == 87);
static_assert(offsetof(ImageHeader, boot_input_end_point) == 151);
static_assert(offsetof(ImageHeader, boot_output_end_point) == 215);
static_assert(offsetof(ImageHeader, normal_input_end_point) == 279);
static_assert(offsetof(ImageHeader, normal_output_end_point) == 343);
static_assert(offsetof(ImageHeader, reset_command) == 407);
static_assert(offsetof(ImageHeader, start_command) == 471);
static_assert(offsetof(ImageHeader, packet_template) == 535);
static_assert(offsetof(ImageHeader, senser_name) == 599);
static_assert(offsetof(ImageHeader, product_name) == 663);
static_assert(offsetof(ImageHeader, next) == 727);

#pragma pack(pop)

// Whether the header block carries its right checksum. False for a null image. Reads no further
// than the header block.
bool CheckImageHeader(const uint8_t* image);

// The header of an image, which needs no alignment.
ImageHeader ReadImageHeader(const uint8_t* image);

// Header block and payload; exceeds 32 bits for a payload of nearly 4 GiB.
uint64_t ImageSize(const ImageHeader& header);

std::wstring ReadTextField(const TextField& field);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_IMAGE_H_
