// Virtual devices without a bus: the bounds of their memory, and the faults that a seed draws. The
// scripted ones show in the tests that script them.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "sim/device.h"
#include "sim/faults.h"

namespace perilink::sim {
namespace {

// A host with nothing but a virtual device's own port before it; it moves the device's time by
// hand.
struct Host : World {
  Host() { mouse.Plug(); }

  uint64_t NowMicros() const override { return now_micros; }
  void Schedule(uint64_t at_micros, std::function<void()> action) override {
    events.emplace(at_micros, std::move(action));
  }
  void lock() override {}
  void unlock() override {}

  void Wait(uint64_t ms) {
    const uint64_t end = now_micros + ms * 1000;
    while (!events.empty() && events.begin()->first <= end) {
      const auto event = events.extract(events.begin());
      now_micros = event.key();
      event.mapped()();
    }
    now_micros = end;
  }

  // Writes a request and waits; what came back meanwhile stands in `arrived`.
  size_t Exchange(std::span<const uint8_t> request, uint64_t wait_ms = 10) {
    arrived.clear();
    mouse.OnOutputReport(1, request);
    Wait(wait_ms);
    return arrived.size();
  }
  // The one reply to a request; empty when there was none, or more than one.
  Bytes Ask(uint8_t command, uint8_t length_byte = 0, Bytes payload = {}, uint16_t address = 0) {
    if (Exchange(MakeFrame(command, length_byte, payload, address)) != 1) return {};
    return arrived[0];
  }

  struct HostPort final : Port {
    explicit HostPort(Host& owner) : host(owner) {}
    void Attach(Device&, const UsbShape&) override {}
    void Detach() override {}
    void SendInput(CollectionAt, std::span<const uint8_t> report) override {
      host.arrived.emplace_back(report.begin(), report.end());
    }
    Host& host;
  };

  uint64_t now_micros = 0;
  std::multimap<uint64_t, std::function<void()>> events;
  std::vector<Bytes> arrived;
  Device mouse{MouseOptions(), *this, std::make_unique<HostPort>(*this)};
};

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

// What comes back for one version request, in one letter per report:
// v the right answer, s a wrong checksum, e an event, ? anything else.
std::string Shape(const Host& host) {
  std::string shape;
  for (const Bytes& r : host.arrived) {
    const bool version = r[1] == command::kVersion && r[6] == 0x01 && r[7] == 0x02 && r[5] == 2;
    shape += !IsSealed(r) ? 's' : r[1] == command::kEvent ? 'e' : version ? 'v' : '?';
  }
  return shape;
}

std::string RandomRun(uint64_t seed, const Probabilities& probabilities) {
  Host host;
  host.mouse.faults().Random(seed, probabilities);
  std::string run;
  for (int i = 0; i < 60; ++i) {
    host.Exchange(MakeFrame(command::kVersion, 0), 200);
    run += Shape(host) + (host.mouse.Requests().back().error != 0 ? "!" : "") + " ";
  }
  return run;
}

TEST(Faults, RandomFaultsRepeatWithTheirSeedAndEnd) {
  Probabilities probabilities = {.fail_write = 0.1,
                                 .drop = 0.1,
                                 .corrupt = 0.1,
                                 .wrong_command = 0.1,
                                 .delay = 0.1,
                                 .stray_event = 0.1,
                                 .duplicate = 0.1};
  const std::string run = RandomRun(5, probabilities);
  EXPECT_EQ(run, RandomRun(5, probabilities));
  EXPECT_NE(run, RandomRun(6, probabilities));
  for (const char* kind : {"! ", " s", "?", "e", "vv"}) {
    EXPECT_NE(run.find(kind), std::string::npos) << kind << " in " << run;
  }
  probabilities.limit = 3;
  probabilities.drop = 1;
  EXPECT_EQ(RandomRun(5, probabilities).substr(20, 20), "v v v v v v v v v v ");
}

}  // namespace
}  // namespace perilink::sim
