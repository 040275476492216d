// Direct commands of the real DLL against a device played over a named pipe.
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>

#include "perilink/finder.h"
#include "windows/pipe_device.h"

namespace perilink {
namespace {

CommandFrame Seal(CommandFrame frame) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(&frame);
  frame.checksum = static_cast<uint8_t>(0x55 - std::accumulate(bytes, bytes + 16, 0));
  return frame;
}

// The echo of a request, with data.
CommandFrame Reply(const CommandFrame& request, std::initializer_list<uint8_t> data) {
  CommandFrame reply = request;
  reply.length = static_cast<uint8_t>(data.size());
  std::copy(data.begin(), data.end(), reply.data);
  return Seal(reply);
}

// What a device sends by itself when its status changes.
CommandFrame Event() {
  CommandFrame event{};
  event.report_id = 0x08;
  event.command = 0x0A;
  event.length = 1;
  event.data[0] = 0x01;
  return Seal(event);
}

std::vector<uint8_t> Bytes(const CommandFrame& frame) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(&frame);
  return {bytes, bytes + sizeof frame};
}

std::vector<uint8_t> TakeBytes(SAFEARRAY* array) {
  std::vector<uint8_t> bytes;
  VARTYPE type = VT_EMPTY;
  LONG last = -1;
  EXPECT_EQ(SafeArrayGetVartype(array, &type), S_OK);
  EXPECT_EQ(type, VT_UI1);
  EXPECT_EQ(SafeArrayGetUBound(array, 1, &last), S_OK);
  for (LONG i = 0; i <= last; ++i) {
    uint8_t byte = 0;
    EXPECT_EQ(SafeArrayGetElement(array, &i, &byte), S_OK);
    bytes.push_back(byte);
  }
  EXPECT_EQ(SafeArrayDestroy(array), S_OK);
  return bytes;
}

std::vector<CommandFrame> TellVersion(const CommandFrame& request, int) {
  return {Reply(request, {0x01, 0x23})};
}

constexpr uint8_t kVersionRequest[] = {0x08, 0x12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x3B};

TEST(Commands, VersionInAllFamilies) {
  const std::vector<std::vector<uint8_t>> one_request = {
      {std::begin(kVersionRequest), std::end(kVersionRequest)}};
  PipeDevice wide(TellVersion);
  EXPECT_EQ(UsbFinder_GetVersion(wide.wide_path()), 0x0123);
  EXPECT_EQ(wide.Requests(), one_request);
  PipeDevice narrow(TellVersion);
  EXPECT_EQ(UsbFinderC_GetVersion(narrow.path().c_str()), 0x0123);
  EXPECT_EQ(narrow.Requests(), one_request);
  PipeDevice managed(TellVersion);
  EXPECT_EQ(CS_UsbFinder_GetVersion(managed.path().c_str()), 0x0123);
  EXPECT_EQ(managed.Requests(), one_request);
}

TEST(Commands, OnlineReplyAsBytes) {
  CommandFrame sent{};
  PipeDevice device([&sent](const CommandFrame& request, int) {
    sent = Reply(request, {1, 0xA1, 0xB2, 0xC3});
    return std::vector{sent};
  });
  const std::vector<uint8_t> reply =
      TakeBytes(CS_UsbFinder_GetDeviceOnLineWithUsbAddress(device.path().c_str()));
  device.Requests();
  EXPECT_EQ(reply, Bytes(sent));
}

TEST(Commands, SilentDeviceIsAskedThreeTimes) {
  PipeDevice device([](const CommandFrame&, int) { return std::vector<CommandFrame>(); });
  CommandFrame reply{};
  std::memset(&reply, 0xEE, sizeof reply);
  const ULONGLONG start = GetTickCount64();
  EXPECT_FALSE(UsbFinder_GetDeviceOnLineWithUsbAddress(device.wide_path(), &reply));
  // Three waits of 100 ms; the tick is coarse, the machine may be slow.
  EXPECT_GE(GetTickCount64() - start, 280u);
  EXPECT_LT(GetTickCount64() - start, 5'000u);
  EXPECT_EQ(Bytes(reply), std::vector<uint8_t>(17, 0));
  EXPECT_EQ(device.Requests().size(), 3u);
}

TEST(Commands, StrayReportCostsOneTry) {
  PipeDevice device([](const CommandFrame& request, int nth) {
    return nth == 1 ? std::vector{Event()} : std::vector{Reply(request, {50, 0, 0x0E, 0x10})};
  });
  BatteryLevel battery{};
  EXPECT_TRUE(UsbFinder_GetBatteryLevel(device.wide_path(), &battery));
  EXPECT_EQ(battery.level, 50);
  EXPECT_EQ(uint16_t{battery.voltage}, 3600);
  EXPECT_EQ(device.Requests().size(), 2u);
}

TEST(Commands, AbsentDeviceLeavesNothing) {
  uint8_t mode = 9;
  EXPECT_FALSE(UsbFinderC_GetLongRangeMode("\\\\.\\pipe\\nobody", &mode));
  EXPECT_EQ(mode, 0);
  EXPECT_EQ(TakeBytes(CS_UsbFinder_GetDeviceOnLineWithUsbAddress("\\\\.\\pipe\\nobody")),
            std::vector<uint8_t>(17, 0));
}

TEST(PassThrough, OpenExchangeClose) {
  PipeDevice device(TellVersion);
  EXPECT_FALSE(UsbFinder_WriteDeviceData(kVersionRequest, sizeof kVersionRequest));
  ASSERT_TRUE(UsbFinderC_OpenDevice(device.path().c_str()));
  CommandFrame reply{};
  EXPECT_TRUE(UsbFinderC_ReadWriteDeviceData(kVersionRequest, reinterpret_cast<uint8_t*>(&reply),
                                             sizeof kVersionRequest));
  EXPECT_EQ(reply.data[1], 0x23);
  EXPECT_EQ(TakeBytes(CS_UsbFinder_ReadWriteDeviceData(kVersionRequest, sizeof kVersionRequest)),
            Bytes(reply));
  UsbFinderC_CloseDevice();
  EXPECT_EQ(TakeBytes(CS_UsbFinder_ReadWriteDeviceData(kVersionRequest, sizeof kVersionRequest)),
            std::vector<uint8_t>());
  EXPECT_EQ(device.Requests().size(), 2u);
}

}  // namespace
}  // namespace perilink
