// Upgrade files as perictl sees them before the library does: read, and checked against everything
// that would go wrong on the way into the device.
#ifndef PERILINK_TOOLS_PERICTL_FIRMWARE_UPGRADE_FILE_H_
#define PERILINK_TOOLS_PERICTL_FIRMWARE_UPGRADE_FILE_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "perilink/protocol.h"

namespace perictl {

// Narrow text in the system's code page, which ends at the first zero byte or with the field.
using UpgradeText = char[PERILINK_UPGRADE_TEXT_SIZE];

std::string_view TextOf(const UpgradeText& field);

struct UpgradeImage {
  std::string name;  // "main" or "slave"
  uint32_t offset = 0;
  UpgradeFileHeader header{};
  uint32_t right_checksum = 0;

  bool ChecksumIsRight() const { return header.checksum == right_checksum; }
  uint64_t Size() const;
  uint32_t PacketCount() const;  // with the start packet
  uint32_t StartAddress() const;
  bool ResetHasEcho() const { return header.reset_command.data[PERILINK_UPGRADE_ECHO_OFFSET] != 0; }
};

struct UpgradeFile {
  std::vector<uint8_t> bytes;
  std::vector<UpgradeImage> images;  // main, slave: those whose headers can be read
  std::string problem;               // why it must not be sent, in a line; empty when it is sound
};

// Throws FileError when the file can't be read. A file that is read need not be sound.
UpgradeFile ReadUpgradeFile(const std::string& name);

UpgradeFile CheckUpgradeFile(std::vector<uint8_t> bytes);

// The payload's bytes in the file; as many of them as there are.
std::span<const uint8_t> PayloadOf(const UpgradeFile& file, const UpgradeImage& image);

// Makes a sound file of one image look for other interfaces in normal mode: those whose paths hold
// these keys, which have at most 63 bytes. Its checksum is made right again.
void SetNormalKeys(UpgradeFile& file, const std::string& input, const std::string& output);

// Throws Failure(kDamagedFile) with the file's problem, if there is one.
void RequireSound(const UpgradeFile& file, const std::string& name);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_FIRMWARE_UPGRADE_FILE_H_
