// Every fault at every packet: the upgrade ends as documented and in time, and can be repeated.
#include "upgrade_rig.h"

namespace perilink::testing {
namespace {

constexpr uint32_t kTimeoutMs = 2000;
constexpr size_t kPacketCount = 5;
constexpr size_t kLast = kPacketCount - 1;

const auto kAlways = [](size_t) { return true; };
const auto kNever = [](size_t) { return false; };

uint64_t LastWriteMs(const sim::Mouse& mouse, uint64_t start_ms) {
  uint64_t last = start_ms;
  for (const sim::Request& request : mouse.Requests())
    if (request.boot && request.error == 0) last = request.at_micros / 1000;
  return last;
}

// `arrange` takes the boot loader's faults and a packet, 0 for the start packet.
template <typename Arrange, typename Survives>
void Sweep(const char* name, Arrange arrange, Survives survives) {
  for (size_t packet = 0; packet < kPacketCount; ++packet) {
    SCOPED_TRACE(::testing::Message() << name << " at packet " << packet);
    const uint64_t handles = platform::OpenHandleCount();
    sim::Mouse mouse;
    const sim::Bytes file = FileFor(mouse);
    mouse.Plug();
    arrange(mouse.boot_faults(), packet);
    const uint64_t start_ms = platform::NowMicros() / 1000;
    ASSERT_TRUE(RunUpgrade(file, kTimeoutMs));
    ASSERT_FALSE(events.empty());
    if (survives(packet)) {
      EXPECT_EQ(events.back(), (Event{2, 1, 0, 0}));
      EXPECT_EQ(mouse.firmware().options().version, kNewVersion);
      EXPECT_LT(last_event_ms - start_ms, 1500u);
    } else {
      EXPECT_EQ(events.back(), (Event{2, 2, 3, 0}));
      const uint64_t idle_ms = last_event_ms - LastWriteMs(mouse, start_ms + 840);
      EXPECT_GE(idle_ms + 2, kTimeoutMs);
      EXPECT_LE(idle_ms, kTimeoutMs + 20);
    }
    EXPECT_EQ(platform::OpenHandleCount(), handles);
    EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
    // Writes that fail are a tick apart, so the log does not grow without bound.
    EXPECT_LT(RawLog().size(), 400u);

    mouse.boot_faults().Heal();
    mouse.Plug();
    Sleep(1000);
    ASSERT_TRUE(RunUpgrade(file, kTimeoutMs));
    EXPECT_EQ(events.back(), (Event{2, 1, 0, 0}));
    EXPECT_EQ(mouse.firmware().options().version, kNewVersion);
  }
}

using sim::At;
using sim::Faults;

TEST_F(UpgradeTest, SweepOfFaults) {
  Sweep(
      "reply dropped", [](Faults& f, size_t i) { f.Drop(At(i + 1)); }, kNever);
  Sweep(
      "unknown kind", [](Faults& f, size_t i) { f.WrongCommand(At(i + 1)); }, kNever);
  Sweep(
      "other data", [](Faults& f, size_t i) { f.CorruptData(At(i + 1)); }, kAlways);
  Sweep(
      "status instead of the echo",
      [](Faults& f, size_t i) {
        f.OnReply(
            [i](sim::Exchange& exchange) {
              const uint8_t status[] = {0x5B, 0xB5, static_cast<uint8_t>(1 + i % 2), 1};
              std::ranges::copy(status, exchange.replies[0].report.begin() + 1);
            },
            At(std::max<size_t>(i, 1) + 1));
      },
      kAlways);
  Sweep(
      "duplicated", [](Faults& f, size_t i) { f.Duplicate(At(i + 1)); }, kAlways);
  // The last packet's late reply is lost: the device has restarted by then.
  Sweep(
      "late", [](Faults& f, size_t i) { f.AnswerAfter(At(i + 1), 340'000); },
      [](size_t i) { return i != kLast; });
  Sweep(
      "too late", [](Faults& f, size_t i) { f.AnswerAfter(At(i + 1), 2'500'000); }, kNever);
  Sweep(
      "echo differs once", [](Faults& f, size_t i) { f.EchoDiffers(At(std::max<size_t>(i, 1))); },
      kAlways);
  Sweep(
      "echo differs ten times",
      [](Faults& f, size_t i) {
        f.EchoDiffers({std::max<size_t>(i, 1), 10, {}});
      },
      [](size_t i) { return i == kLast; });
  Sweep(
      "write fails", [](Faults& f, size_t i) { f.FailWrite(At(i + 1)); }, kAlways);
  Sweep(
      "every write fails", [](Faults& f, size_t i) { f.FailWrite(sim::From(i + 1)); }, kNever);
  Sweep(
      "unplugged", [](Faults& f, size_t i) { f.UnplugAfter(At(i + 1)); }, kNever);
}

}  // namespace
}  // namespace perilink::testing
