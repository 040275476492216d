#include "sim/firmware.h"

#include <gtest/gtest.h>

#include "raw_host.h"
#include "sim/keyboard.h"
#include "sim/mouse.h"

namespace perilink::sim {
namespace {

struct Query {
  uint8_t command;
  uint8_t length_byte;
  Bytes payload;
  Bytes reply_from_5;  // length byte and data
};

void ExpectReply(RawHost& host, const Query& query) {
  SCOPED_TRACE(testing::Message() << "command " << int{query.command});
  const Bytes reply = host.Ask(query.command, query.length_byte, query.payload);
  ASSERT_TRUE(IsSealed(reply));
  EXPECT_EQ(reply[0], 0x08);
  EXPECT_EQ(reply[1], query.command);
  EXPECT_EQ(reply[2], 0);
  EXPECT_EQ(Bytes(reply.begin() + 5,
                  reply.begin() + 5 + static_cast<ptrdiff_t>(query.reply_from_5.size())),
            query.reply_from_5);
}

TEST(Firmware, AnswersEveryCommandAndRemembersWhatIsSet) {
  Mouse mouse;
  mouse.Plug();
  RawHost host(mouse.CommandPath());
  const Bytes ten = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  const Query queries[] = {
      {0x01, 8, {9, 8, 7, 6}, {7, 9, 8, 7, 6, 0x12, 0x34, 0x01}},
      {0x02, 1, {1}, {1, 1}},
      {0x03, 0, {}, {4, 1, 0x1A, 0x2B, 0x3C}},
      {0x04, 0, {}, {4, 80, 0, 4020 / 256, 4020 % 256}},
      {0x06, 0, {}, {1, 0}},
      {0x05, 2, {3, 4}, {2, 3, 4}},
      {0x06, 0, {}, {1, 1}},
      {0x0B, 4, {2, 0x34, 0x0B, 0xCD}, {4, 2, 0x34, 0x0B, 0xCD}},
      {0x0F, 1, {3}, {1, 3}},
      {0x0E, 0, {}, {1, 3}},
      {0x11, 0, {}, {0}},
      {0x12, 0, {}, {2, 0x01, 0x02}},
      {0x14, 10, ten, {10, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
      {0x15, 0, {}, {10, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
      {0x16, 10, {1}, {10, 1}},
      {0x17, 0, {}, {1, 1}},
      {0x18, 10, {0, 9, 8, 7, 6, 5}, {10, 0, 9, 8, 7, 6, 5}},
      {0x19, 0, {}, {7, 0, 9, 8, 7, 6, 5, 0}},
      {0x1A, 10, ten, {10, 1}},
      {0x1F, 10, ten, {10, 1}},
      {0x20, 0, {}, {10, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
      {0x2B, 0, {}, {1, 0x30}},
      {0x2C, 10, {4, 5, 6}, {10, 4, 5, 6}},
      {0x2D, 0, {}, {3, 4, 5, 6}},
      {0xB3, 0, {}, {2, 0x02, 0x03}},
      {0xF0, 0x83, {0x12, 0x77, 0}, {3, 0x12, 0x77, 0x43}},
      {0xF1, 0x83, {}, {3, 0x12, 0x77, 0x43}},
      {0x77, 2, {5, 6}, {2, 5, 6}},  // unknown: echoed
      {0x12, 0x80, {}, {0x82, 0x01, 0x02}},
      {0x40, 1, {5}, {1, 0x99}},
  };
  mouse.firmware().SetHandler(0x40, [](const Frame& request) {
    Frame reply = request;
    reply[6] = 0x99;
    return std::optional(reply);
  });
  for (const Query& query : queries)
    ExpectReply(host, query);
  Sleep(3000);
  ExpectReply(host, {0x06, 0, {}, {1, 2}});  // paired by now
}

TEST(Firmware, TakesNoRequestWithAWrongChecksumOrReportId) {
  Mouse mouse;
  mouse.Plug();
  RawHost host(mouse.CommandPath());
  Frame request = MakeFrame(command::kVersion, 0);
  request[16] ^= 1;
  EXPECT_EQ(host.Exchange(request), 0u);
  request = MakeFrame(command::kVersion, 0);
  request[0] = 0x09;
  Seal(request);
  EXPECT_EQ(host.Exchange(request), 0u);
}

TEST(Firmware, FlashWritesAreEchoedAndReadBackWithinTheMemory) {
  Mouse mouse;
  mouse.Plug();
  RawHost host(mouse.CommandPath());
  const Bytes data = {0x03, 0x52};
  const Frame write = MakeFrame(command::kWriteMemory, 0x82, data, 0x0004);
  ASSERT_EQ(host.Exchange(write), 1u);
  EXPECT_EQ(host.arrived[0].report, Bytes(write.begin(), write.end()));
  EXPECT_TRUE(mouse.flash().InvalidFields().empty());
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

TEST(Firmware, ClearingTheSettingsTakesItsTimeAndLaterRequestsWait) {
  Mouse mouse;
  mouse.Plug();
  mouse.flash().SetField(0, {0x77});
  RawHost host(mouse.CommandPath());
  const uint64_t start = platform::NowMicros();
  host.Write(MakeFrame(command::kClearSetting, 0));
  host.Write(MakeFrame(command::kVersion, 0));
  Sleep(2000);
  ASSERT_EQ(host.arrived.size(), 2u);
  EXPECT_EQ(host.arrived[0].report[1], command::kClearSetting);
  EXPECT_EQ(host.arrived[0].at_micros, start + 1'200'000);
  EXPECT_EQ(host.arrived[1].at_micros, start + 1'201'000);
  EXPECT_EQ(mouse.flash()[0], FlashImage::Default()[0]);
}

TEST(Firmware, PutsTheDescriptorTogetherAndRefusesPiecesBeyondIt) {
  Mouse mouse;
  mouse.Plug();
  RawHost host(mouse.CommandPath());
  host.Ask(command::kDescriptorString, 10, {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9'},
           12 << 8 | 0);
  host.Ask(command::kDescriptorString, 2, {'a', 0}, 12 << 8 | 10);
  EXPECT_EQ(mouse.firmware().state().descriptor, std::string("0123456789a\0", 12));
  EXPECT_EQ(host.Ask(command::kDescriptorString, 3, {1, 2, 3}, 12 << 8 | 10)[2], 1);
  EXPECT_EQ(host.Ask(command::kDescriptorString, 10, Bytes(10), 31 << 8 | 20)[2], 1);
}

TEST(Firmware, AsleepOnlyTheReceiverAnswers) {
  Mouse mouse;
  mouse.Plug();
  mouse.SetAsleep(true);
  RawHost host(mouse.CommandPath());
  ExpectReply(host, {0x03, 0, {}, {4, 0, 0x1A, 0x2B, 0x3C}});
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
  EXPECT_EQ(host.arrived[0].report[6], 0x85);
  ExpectReply(host, {0x12, 0, {}, {2, 0x01, 0x02}});
}

TEST(Firmware, AKeyboardsRepliesNameItAndItsLayersAreReadWhole) {
  Keyboard keyboard;
  keyboard.Plug();
  RawHost host(keyboard.CommandPath());
  ExpectReply(host, {0x12, 0x80, {}, {0x82, 0x01, 0x02}});
  ExpectReply(host, {0x12, 0, {}, {0x82, 0x01, 0x02}});
  ExpectReply(host, {0xF1, 0x83, {}, {0x83, 0x12, 0x34, 0x43}});
  const Bytes piece = host.Ask(command::kReadMemory, 0x8A, {}, 0x3FC);
  ASSERT_EQ(piece.size(), 17u);
  EXPECT_EQ(
      Bytes(piece.begin() + 5, piece.begin() + 14),
      (Bytes{0x8A, 2, 0x7F, 0, CheckOf(Bytes{2, 0x7F, 0}), 3, 0, 0, CheckOf(Bytes{3, 0, 0})}));
}

}  // namespace
}  // namespace perilink::sim
