// Direct commands of the real DLL against a device played over a named pipe.
#include <gtest/gtest.h>

#include <cstring>

#include "perilink/finder.h"
#include "support/interop_values.h"
#include "transport/frame.h"
#include "windows/pipe_device.h"

namespace perilink {
namespace {

using testing::TakeBytes;

// The echo of a request, with data.
CommandFrame Reply(CommandFrame reply, std::initializer_list<uint8_t> data) {
  reply.length = static_cast<uint8_t>(data.size());
  std::copy(data.begin(), data.end(), reply.data);
  reply.checksum = FrameChecksum(reply);
  return reply;
}

std::vector<uint8_t> Bytes(const CommandFrame& frame) {
  return {FrameBytes(frame).begin(), FrameBytes(frame).end()};
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

TEST(Commands, AbsentDeviceLeavesNothing) {
  uint8_t mode = 9;
  EXPECT_FALSE(UsbFinderC_GetLongRangeMode("\\\\.\\pipe\\nobody", &mode));
  EXPECT_EQ(mode, 0);
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
