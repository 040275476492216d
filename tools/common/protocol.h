// The devices' protocol as far as the tools speak it themselves: command codes, the frame's check
// byte, the upgrade file's header. In one place, beside what the public headers declare.
#ifndef PERILINK_TOOLS_COMMON_PROTOCOL_H_
#define PERILINK_TOOLS_COMMON_PROTOCOL_H_

#include <cstddef>
#include <cstdint>
#include <numeric>
#include <span>

#include "perilink/records.h"

namespace perilink::tools {

// The interface number and collection that the devices keep for their commands.
inline constexpr char kCommandInterfaceKey[] = "mi_01&col05";

// ---- Frames ------------------------------------------------------------------------------------

inline constexpr uint8_t kReportId = 0x08;
inline constexpr size_t kFrameData = sizeof(CommandFrame::data);

enum CommandCode : uint8_t {
  kReadOnline = 0x03,
  kReadBattery = 0x04,
  kWriteMemory = 0x07,
  kReadMemory = 0x08,
  kStatusEvent = 0x0A,
};

// 0x55 minus the sum of the bytes: behind a frame, behind every field of a configuration's image.
inline uint8_t CheckByte(std::span<const uint8_t> bytes) {
  return static_cast<uint8_t>(0x55 - std::accumulate(bytes.begin(), bytes.end(), 0u));
}

inline uint8_t Checksum(const CommandFrame& frame) {
  return CheckByte({reinterpret_cast<const uint8_t*>(&frame), sizeof frame - 1});
}

// What a byte of the memory holds before it is written; as a count it stands for none.
inline constexpr uint8_t kErased = 0xFF;

// ---- Upgrade files -----------------------------------------------------------------------------

// The block in front of an image's payload. Its checksum covers at most this.
inline constexpr size_t kUpgradeBlockSize = 8192;
inline constexpr uint32_t kUpgradeChecksumStart = 0x55555555;
inline constexpr uint32_t kLongestPacket = 64;
// Of a packet's bytes: where its payload stands, and how much of it there can be.
inline constexpr uint32_t kPayloadInPacket = 17;
inline constexpr uint32_t kPayloadPerPacket = 32;

// Narrow text in the system's code page, which ends at the first zero byte or with the field.
using UpgradeText = char[64];

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

// ---- Upgrade events ----------------------------------------------------------------------------

enum UpgradeEventKind : uint8_t { kUpgradeProgress = 1, kUpgradeResult = 2, kUpgradeNotice = 3 };
enum UpgradeResultCode : uint8_t { kUpgradeSuccess = 1, kUpgradeDeviceError = 10 };
enum UpgradeNoticeCode : uint8_t {
  kReadyForDownload = 16,
  kBootMode = 17,
  kStatusEnd = 0x88,
};

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_COMMON_PROTOCOL_H_
