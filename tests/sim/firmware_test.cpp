#include "sim/firmware.h"

#include <gtest/gtest.h>

#include "raw_host.h"
#include "sim/mouse.h"

namespace perilink::sim {
namespace {

TEST(Flash, DefaultIsValidAndEveryBrokenFieldIsNamed) {
  EXPECT_TRUE(FlashImage::Default().InvalidFields().empty());
  size_t end = 0;
  for (const FlashField& field : FlashFields()) {
    EXPECT_GE(field.address, end);
    end = field.address + field.width + 1u;
    FlashImage image = FlashImage::Default();
    image.BreakField(field.address, field.width);
    EXPECT_EQ(image.InvalidFields(), std::vector<uint16_t>{field.address});
  }
}

TEST(Firmware, FlashIsWrittenAndReadWithinItsMemory) {
  Mouse mouse;
  mouse.Plug();
  RawHost host(mouse.CommandPath());
  const Frame write = MakeFrame(command::kWriteMemory, 0x82, Bytes{0x03, 0x52}, 0x0004);
  ASSERT_EQ(host.Exchange(write), 1u);
  EXPECT_EQ(host.arrived[0], Bytes(write.begin(), write.end()));
  const Bytes read = host.Ask(command::kReadMemory, 3, {}, 0x0004);
  EXPECT_EQ(Bytes(read.begin() + 3, read.begin() + 9),
            (Bytes{0x00, 0x04, 3, 0x03, 0x52, mouse.flash()[6]}));

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
  Mouse mouse;
  mouse.Plug();
  mouse.SetAsleep(true);
  RawHost host(mouse.CommandPath());
  for (int code = 0; code < 256; ++code) {
    const bool receiver = code == 0x03 || code == 0x05 || code == 0x06 ||
                          (code >= 0x14 && code <= 0x19) || code == 0x2C || code == 0x2D;
    EXPECT_EQ(host.Ask(static_cast<uint8_t>(code)).empty(), !receiver) << code;
  }
  host.arrived.clear();
  mouse.SendEvent(0x05);
  mouse.SetAsleep(false);
  mouse.SendEvent(0x85);
  ASSERT_EQ(host.arrived.size(), 1u);
  EXPECT_EQ(host.arrived[0][6], 0x85);
}

TEST(Device, UnpluggingLosesRepliesUnderWayAndReplugComesAfterTheDelay) {
  Mouse mouse;
  mouse.Plug();
  RawHost host(mouse.CommandPath());
  mouse.firmware().state().config = 5;
  host.Write(MakeFrame(command::kVersion, 0));
  mouse.ReplugAfter(500'000);
  EXPECT_TRUE(host.removed);
  EXPECT_NE(host.Write(MakeFrame(command::kVersion, 0)), 0u);
  Sleep(499);
  EXPECT_EQ(mouse.mode(), Mode::kUnplugged);
  EXPECT_NE(RawHost(mouse.CommandPath()).open_error, 0u);
  Sleep(2);
  EXPECT_EQ(mouse.mode(), Mode::kNormal);
  EXPECT_EQ(host.arrived.size(), 0u);
  RawHost again(mouse.CommandPath());
  EXPECT_EQ(again.Ask(command::kReadConfig)[6], 0);  // lost with the power
}

}  // namespace
}  // namespace perilink::sim
