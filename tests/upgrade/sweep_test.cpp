// Every fault at every packet: the upgrade ends as documented and in time, and can be repeated.
#include "upgrade_rig.h"

namespace perilink::testing {
namespace {

constexpr uint32_t kTimeoutMs = 2000;
constexpr size_t kPacketCount = 5;
constexpr size_t kLast = kPacketCount - 1;

struct Fault {
  const char* name;
  std::function<void(sim::Mouse&, size_t packet)> arrange;  // packet 0 is the start packet
  std::function<bool(size_t packet)> survives;
};

const auto kAlways = [](size_t) { return true; };
const auto kNever = [](size_t) { return false; };

const Fault kFaults[] = {
    {"reply dropped", [](auto& m, size_t i) { m.boot_faults().Drop(sim::At(i + 1)); }, kNever},
    {"unknown kind", [](auto& m, size_t i) { m.boot_faults().WrongCommand(sim::At(i + 1)); },
     kNever},
    {"other data", [](auto& m, size_t i) { m.boot_faults().CorruptData(sim::At(i + 1)); }, kAlways},
    {"duplicated", [](auto& m, size_t i) { m.boot_faults().Duplicate(sim::At(i + 1)); }, kAlways},
    // The last packet's late reply is lost: the device has restarted by then.
    {"late", [](auto& m, size_t i) { m.boot_faults().AnswerAfter(sim::At(i + 1), 340'000); },
     [](size_t i) { return i != kLast; }},
    {"too late", [](auto& m, size_t i) { m.boot_faults().AnswerAfter(sim::At(i + 1), 2'500'000); },
     kNever},
    {"echo differs once",
     [](auto& m, size_t i) { m.boot_faults().EchoDiffers(sim::At(std::max<size_t>(i, 1))); },
     kAlways},
    {"echo differs ten times",
     [](auto& m, size_t i) {
       m.boot_faults().EchoDiffers({std::max<size_t>(i, 1), 10, {}});
     },
     [](size_t i) { return i == kLast; }},
    {"write fails", [](auto& m, size_t i) { m.boot_faults().FailWrite(sim::At(i + 1)); }, kAlways},
    {"every write fails", [](auto& m, size_t i) { m.boot_faults().FailWrite(sim::From(i + 1)); },
     kNever},
    {"unplugged", [](auto& m, size_t i) { m.boot_faults().UnplugAfter(sim::At(i + 1)); }, kNever},
};

uint64_t LastWriteMs(const sim::Mouse& mouse, uint64_t start_ms) {
  uint64_t last = start_ms;
  for (const sim::Request& request : mouse.Requests())
    if (request.boot && request.error == 0) last = request.at_micros / 1000;
  return last;
}

TEST_F(UpgradeTest, SweepOfFaults) {
  for (const Fault& fault : kFaults) {
    for (size_t packet = 0; packet < kPacketCount; ++packet) {
      SCOPED_TRACE(::testing::Message() << fault.name << " at packet " << packet);
      const uint64_t handles = platform::OpenHandleCount();
      sim::Mouse mouse;
      const sim::Bytes file = FileFor(mouse);
      mouse.Plug();
      fault.arrange(mouse, packet);
      const uint64_t start_ms = platform::NowMicros() / 1000;
      ASSERT_TRUE(RunUpgrade(file, kTimeoutMs));
      ASSERT_FALSE(events.empty());
      if (fault.survives(packet)) {
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

      mouse.faults().Heal();
      mouse.boot_faults().Heal();
      mouse.Plug();
      Sleep(1000);
      ASSERT_TRUE(RunUpgrade(file, kTimeoutMs));
      EXPECT_EQ(events.back(), (Event{2, 1, 0, 0}));
      EXPECT_EQ(mouse.firmware().options().version, kNewVersion);
    }
  }
}

}  // namespace
}  // namespace perilink::testing
