// Every fault at every packet: the upgrade ends as documented and in time, and can be repeated.
#include "upgrade_rig.h"

namespace perilink::testing {
namespace {

constexpr uint32_t kTimeoutMs = 2000;
constexpr size_t kPacketCount = 5;

uint64_t LastWriteMs(const sim::Mouse& mouse, uint64_t start_ms) {
  uint64_t last = start_ms;
  for (const sim::Request& request : mouse.Requests())
    if (request.boot && request.error == 0) last = request.at_micros / 1000;
  return last;
}

using sim::At;
using sim::Faults;
enum Survivors { kNone, kAll, kLast, kButLast };

void AnswersWithAStatus(Faults& faults, size_t packet) {
  const auto status = [packet](sim::Exchange& exchange) {
    const uint8_t report[] = {0x5B, 0xB5, static_cast<uint8_t>(1 + packet % 2), 1};
    std::ranges::copy(report, exchange.replies[0].report.begin() + 1);
  };
  faults.OnReply(status, At(std::max<size_t>(packet, 1) + 1));
}

// What the boot loader does at a packet, 0 for the start packet, and at which an upgrade survives.
// The last packet's late reply is lost: the device has restarted by then.
const struct {
  const char* name;
  void (*arrange)(Faults& faults, size_t packet);
  Survivors survivors;
} kRows[] = {
    {"reply dropped", [](Faults& f, size_t i) { f.Drop(At(i + 1)); }, kNone},
    {"unknown kind", [](Faults& f, size_t i) { f.WrongCommand(At(i + 1)); }, kNone},
    {"other data", [](Faults& f, size_t i) { f.CorruptData(At(i + 1)); }, kAll},
    {"status instead of the echo", AnswersWithAStatus, kAll},
    {"duplicated", [](Faults& f, size_t i) { f.Duplicate(At(i + 1)); }, kAll},
    {"late", [](Faults& f, size_t i) { f.AnswerAfter(At(i + 1), 340'000); }, kButLast},
    {"too late", [](Faults& f, size_t i) { f.AnswerAfter(At(i + 1), 2'500'000); }, kNone},
    {"differs once", [](Faults& f, size_t i) { f.EchoDiffers(At(i + (i == 0))); }, kAll},
    {"ten times",
     [](Faults& f, size_t i) {
       f.EchoDiffers({i + (i == 0), 10, {}});
     },
     kLast},
    {"write fails", [](Faults& f, size_t i) { f.FailWrite(At(i + 1)); }, kAll},
    {"every write fails", [](Faults& f, size_t i) { f.FailWrite(sim::From(i + 1)); }, kNone},
    {"unplugged", [](Faults& f, size_t i) { f.UnplugAfter(At(i + 1)); }, kNone},
};

TEST_F(UpgradeTest, SweepOfFaults) {
  for (const auto& row : kRows) {
    for (size_t packet = 0; packet < kPacketCount; ++packet) {
      SCOPED_TRACE(::testing::Message() << row.name << " at packet " << packet);
      const bool last = packet + 1 == kPacketCount;
      sim::Mouse mouse;
      const sim::Bytes file = FileFor(mouse);
      mouse.Plug();
      row.arrange(mouse.boot_faults(), packet);
      const uint64_t start_ms = platform::NowMicros() / 1000;
      ASSERT_TRUE(RunUpgrade(file, kTimeoutMs));
      ASSERT_FALSE(events.empty());
      if (row.survivors == kAll || row.survivors == (last ? kLast : kButLast)) {
        EXPECT_EQ(events.back(), kSucceeded);
        EXPECT_EQ(mouse.firmware().options().version, kNewVersion);
        EXPECT_LT(last_event_ms - start_ms, 1500u);
      } else {
        EXPECT_EQ(events.back(), (Event{2, 2, 3, 0}));
        const uint64_t idle_ms = last_event_ms - LastWriteMs(mouse, start_ms + 840);
        EXPECT_GE(idle_ms + 2, kTimeoutMs);
        EXPECT_LE(idle_ms, kTimeoutMs + 20);
      }
      EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
      // Writes that fail are a tick apart, so the log does not grow without bound.
      EXPECT_LT(RawLog().size(), 400u);

      mouse.boot_faults().Heal();
      mouse.Plug();
      Sleep(1000);
      ASSERT_TRUE(RunUpgrade(file, kTimeoutMs));
      EXPECT_EQ(events.back(), kSucceeded);
      EXPECT_EQ(mouse.firmware().options().version, kNewVersion);
    }
  }
}

}  // namespace
}  // namespace perilink::testing
