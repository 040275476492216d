// The reports of the command protocol, as the device sees them: 17 bytes, closed by a checksum.
//
// What sim/ knows of the protocols stands here and in flash_image.h, boot_loader.h and
// upgrade_file.h a second time, on purpose: codes, checksums, addresses and layouts are read from
// the device's side and share nothing with the library or with perilink/protocol.h, so that the two
// check each other: what differs shows when the library talks with a virtual device.
#ifndef PERILINK_SIM_REPORT_H_
#define PERILINK_SIM_REPORT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace perilink::sim {

using Bytes = std::vector<uint8_t>;
using Frame = std::array<uint8_t, 17>;

inline constexpr uint8_t kCommandReportId = 0x08;
inline constexpr uint8_t kKeyboardBit = 0x80;  // of the length byte, byte 5

namespace command {
inline constexpr uint8_t kDeviceInfo = 0x01;
inline constexpr uint8_t kDriverStatus = 0x02;
inline constexpr uint8_t kOnLine = 0x03;
inline constexpr uint8_t kBattery = 0x04;
inline constexpr uint8_t kPair = 0x05;
inline constexpr uint8_t kPairStatus = 0x06;
inline constexpr uint8_t kWriteMemory = 0x07;
inline constexpr uint8_t kReadMemory = 0x08;
inline constexpr uint8_t kClearSetting = 0x09;
inline constexpr uint8_t kEvent = 0x0A;
inline constexpr uint8_t kVidPid = 0x0B;
inline constexpr uint8_t kDescriptorString = 0x0C;
inline constexpr uint8_t kUpdateMode = 0x0D;
inline constexpr uint8_t kReadConfig = 0x0E;
inline constexpr uint8_t kSetConfig = 0x0F;
inline constexpr uint8_t kMtkMode = 0x11;
inline constexpr uint8_t kVersion = 0x12;
inline constexpr uint8_t kSetDongleRgb = 0x14;
inline constexpr uint8_t kGetDongleRgb = 0x15;
inline constexpr uint8_t kSetLongRange = 0x16;
inline constexpr uint8_t kGetLongRange = 0x17;
inline constexpr uint8_t kSetBarMode = 0x18;
inline constexpr uint8_t kGetBarMode = 0x19;
inline constexpr uint8_t kDongleIdToMouse = 0x1A;
inline constexpr uint8_t kSetSerial = 0x1F;
inline constexpr uint8_t kGetSerial = 0x20;
inline constexpr uint8_t kRssi = 0x2B;
inline constexpr uint8_t kSetIndicator = 0x2C;
inline constexpr uint8_t kGetIndicator = 0x2D;
inline constexpr uint8_t kSlaveVersion = 0xB3;
inline constexpr uint8_t kWriteCidMid = 0xF0;
inline constexpr uint8_t kReadCidMid = 0xF1;
}  // namespace command

// What a boot loader's packets and replies say in byte 1; the replies' marks follow in byte 2.
namespace boot {
inline constexpr uint8_t kStart = 0xB0;
inline constexpr uint8_t kData = 0xB1;
inline constexpr uint8_t kMore = 0xC0;  // in byte 2 of a data packet
inline constexpr uint8_t kLast = 0xC1;  // in byte 2 of the last one
inline constexpr uint8_t kError = 0x5A;
inline constexpr uint8_t kErrorMark = 0xA5;
inline constexpr uint8_t kStatus = 0x5B;
inline constexpr uint8_t kStatusMark = 0xB5;
inline constexpr uint8_t kStatusEnd = 0x88;
}  // namespace boot

// Flags of an event.
inline constexpr uint8_t kBatteryFlag = 0x40;

// The check byte of a run of bytes: 0x55 minus their sum. It closes reports and flash fields alike.
uint8_t CheckOf(std::span<const uint8_t> bytes);

// Stores the checksum that belongs to the report's other 16 bytes; other lengths are left alone.
void Seal(std::span<uint8_t> report);

// Whether the bytes are a whole command report with the right checksum.
bool IsSealed(std::span<const uint8_t> report);

// The report filled up with zeros, or cut, to its 17 bytes, and sealed.
Bytes Closed(Bytes report);

// A sealed report; payload beyond 10 bytes is dropped.
Frame MakeFrame(uint8_t command, uint8_t length_byte, std::span<const uint8_t> payload = {},
                uint16_t address = 0);

// The report that a device sends by itself when its status changes.
Frame MakeEvent(uint8_t flags);

}  // namespace perilink::sim

#endif  // PERILINK_SIM_REPORT_H_
