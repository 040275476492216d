#include "sim/firmware.h"

#include <gtest/gtest.h>

#include "host.h"

namespace perilink::sim {
namespace {

TEST(Flash, DefaultIsValidAndABrokenFieldIsNamed) {
  FlashImage image = FlashImage::Default();
  EXPECT_TRUE(image.InvalidFields().empty());
  image.BreakField(160, 6);
  EXPECT_EQ(image.InvalidFields(), std::vector<uint16_t>{160});
}

TEST(Firmware, FlashIsWrittenAndReadWithinItsMemory) {
  Host host;
  const Frame write = MakeFrame(command::kWriteMemory, 0x82, Bytes{0x03, 0x52}, 0x0004);
  ASSERT_EQ(host.Exchange(write), 1u);
  EXPECT_EQ(host.arrived[0], Bytes(write.begin(), write.end()));
  const Bytes read = host.Ask(command::kReadMemory, 3, {}, 0x0004);
  EXPECT_EQ(Bytes(read.begin() + 3, read.begin() + 9),
            (Bytes{0x00, 0x04, 3, 0x03, 0x52, host.mouse.flash()[6]}));

  for (const auto& [command, length, address] :
       {std::tuple{command::kWriteMemory, 11, 0}, std::tuple{command::kWriteMemory, 2, 8191},
        std::tuple{command::kReadMemory, 10, 8183}, std::tuple{command::kReadMemory, 1, 0xFFFF}}) {
    const Bytes refused =
        host.Ask(command, static_cast<uint8_t>(length), Bytes(10), static_cast<uint16_t>(address));
    ASSERT_TRUE(IsSealed(refused));
    EXPECT_EQ(refused[2], 1);
  }
  EXPECT_EQ(host.Ask(command::kReadMemory, 10, {}, 8182)[5], 10);
}

TEST(Firmware, AsleepOnlyTheReceiverAnswers) {
  Host host;
  host.mouse.SetAsleep(true);
  for (int code = 0; code < 256; ++code) {
    const bool receiver = code == 0x03 || code == 0x05 || code == 0x06 ||
                          (code >= 0x14 && code <= 0x19) || code == 0x2C || code == 0x2D;
    EXPECT_EQ(host.Ask(static_cast<uint8_t>(code)).empty(), !receiver) << code;
  }
  host.arrived.clear();
  host.mouse.SendEvent(0x05);
  host.mouse.SetAsleep(false);
  host.mouse.SendEvent(0x85);
  ASSERT_EQ(host.arrived.size(), 1u);
  EXPECT_EQ(host.arrived[0][6], 0x85);
}

TEST(Device, UnpluggingLosesRepliesUnderWayAndReplugComesAfterTheDelay) {
  Host host;
  host.mouse.firmware().state().config = 5;
  host.Write(MakeFrame(command::kVersion, 0));
  host.mouse.ReplugAfter(500'000);
  EXPECT_EQ(host.Write(MakeFrame(command::kVersion, 0)), 1167u);  // ERROR_DEVICE_NOT_CONNECTED
  host.Wait(499);
  EXPECT_EQ(host.attached, nullptr);
  host.Wait(1);
  EXPECT_EQ(host.mouse.mode(), Mode::kNormal);
  EXPECT_NE(host.attached, nullptr);
  EXPECT_EQ(host.arrived.size(), 0u);
  EXPECT_EQ(host.Ask(command::kReadConfig)[6], 0);  // lost with the power
}

}  // namespace
}  // namespace perilink::sim
