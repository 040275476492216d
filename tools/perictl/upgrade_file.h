// Upgrade files as perictl sees them before the library does: read, and checked against everything
// that would go wrong on the way into the device.
#ifndef PERILINK_TOOLS_PERICTL_UPGRADE_FILE_H_
#define PERILINK_TOOLS_PERICTL_UPGRADE_FILE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace perictl {

// Narrow text in the system's code page, which ends at the first zero byte or with the field.
using UpgradeText = char[64];
std::string_view TextOf(const UpgradeText& field);

#pragma pack(push, 1)

struct UpgradeCommand {
  uint8_t length;  // bytes of a report; of the start command, the bytes of its data
  uint8_t feature_report;
  uint8_t data[62];
};
static_assert(sizeof(UpgradeCommand) == 64);

// Start of an image; its integers are little-endian.
struct UpgradeHeader {
  uint32_t checksum;
  uint32_t checked_length;
  uint32_t payload_length;
  uint32_t slave_offset;  // main image only; 0: there is no slave image
  uint8_t reserved[7];
  UpgradeText file_id;
  UpgradeText ic_name;
  UpgradeText boot_input;
  UpgradeText boot_output;
  UpgradeText normal_input;
  UpgradeText normal_output;
  UpgradeCommand reset;
  UpgradeCommand start;
  UpgradeCommand packet;
  UpgradeText sensor_name;
  UpgradeText product_name;
};
static_assert(offsetof(UpgradeHeader, file_id) == 23);
static_assert(offsetof(UpgradeHeader, reset) == 407);
static_assert(sizeof(UpgradeHeader) == 727);

#pragma pack(pop)

struct UpgradeImage {
  std::string name;  // "main" or "slave"
  uint32_t offset = 0;
  UpgradeHeader header{};
  uint32_t right_checksum = 0;

  bool ChecksumIsRight() const { return header.checksum == right_checksum; }
  uint64_t Size() const;
  uint32_t PacketCount() const;  // with the start packet
  uint32_t StartAddress() const;
  bool ResetHasEcho() const { return header.reset.data[5] != 0; }
};

struct UpgradeFile {
  std::vector<uint8_t> bytes;
  std::vector<UpgradeImage> images;  // main, slave: those whose headers can be read
  std::string problem;               // why it must not be sent, in a line; empty when it is sound
};

// Throws Failure(kFile) when the file can't be read. A file that is read need not be sound.
UpgradeFile ReadUpgradeFile(const std::string& name);

UpgradeFile CheckUpgradeFile(std::vector<uint8_t> bytes);

// Throws Failure(kDamagedFile) with the file's problem, if there is one.
void RequireSound(const UpgradeFile& file, const std::string& name);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_UPGRADE_FILE_H_
