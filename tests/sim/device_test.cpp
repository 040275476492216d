// The bounds of a virtual device's memory, and the faults that a seed draws. The scripted ones show
// in the tests that script them.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "sim/faults.h"
#include "sim/mouse.h"
#include "transport/link.h"

namespace perilink::sim {
namespace {

struct Host {
  Host() {
    mouse.Plug();
    link.Open(mouse.CommandPath());
  }
  // The reply; empty when there is none.
  Bytes Ask(uint8_t command, uint8_t length = 0, const Bytes& payload = {}, uint16_t address = 0) {
    link.Write(MakeFrame(command, length, payload, address));
    if (link.Next(200) != Arrival::kReport) return {};
    return {link.report().begin(), link.report().end()};
  }

  Mouse mouse;
  Link link{17};
};

TEST(Firmware, FlashIsWrittenAndReadWithinItsMemory) {
  Host host;
  const Frame write = MakeFrame(command::kWriteMemory, 0x82, Bytes{0x03, 0x52}, 0x0004);
  EXPECT_EQ(host.Ask(command::kWriteMemory, 0x82, {0x03, 0x52}, 0x0004),
            Bytes(write.begin(), write.end()));
  const Bytes read = host.Ask(command::kReadMemory, 3, {}, 0x0004);
  EXPECT_EQ(Bytes(read.begin() + 3, read.begin() + 9),
            (Bytes{0x00, 0x04, 3, 0x03, 0x52, host.mouse.flash()[6]}));
  const std::tuple<uint8_t, uint8_t, uint16_t, bool> rows[] = {
      {command::kWriteMemory, 11, 0, false},
      {command::kWriteMemory, 2, 8191, false},
      {command::kReadMemory, 10, 8183, false},
      {command::kReadMemory, 1, 0xFFFF, false},
      {command::kReadMemory, 10, 8182, true}};
  for (const auto& [command, length, address, taken] : rows) {
    const Bytes reply = host.Ask(command, length, Bytes(10), address);
    ASSERT_TRUE(IsSealed(reply));
    EXPECT_EQ(reply[2], !taken);
  }
}

// What comes back for 60 version requests, a letter a report: v the right answer, s a wrong
// checksum, e an event, ? anything else. A refused write is a "!".
std::string RandomRun(uint64_t seed, const Probabilities& probabilities) {
  Host host;
  host.mouse.faults().Random(seed, probabilities);
  std::string run;
  for (int i = 0; i < 60; ++i, run += ' ') {
    const Frame request = MakeFrame(command::kVersion, 0);
    if (!host.link.Write(request)) run += '!';
    while (host.link.Next(200) == Arrival::kReport) {
      const auto r = host.link.report();
      const bool version = r[1] == command::kVersion && r[6] == 0x01 && r[7] == 0x02 && r[5] == 2;
      run += !IsSealed(r) ? 's' : r[1] == command::kEvent ? 'e' : version ? 'v' : '?';
    }
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
  for (const char* kind : {"! ", " s", "?", "e", "vv"})
    EXPECT_NE(run.find(kind), std::string::npos) << kind << " in " << run;
  probabilities.limit = 3;
  probabilities.drop = 1;
  EXPECT_EQ(RandomRun(5, probabilities).substr(20, 20), "v v v v v v v v v v ");
}

}  // namespace
}  // namespace perilink::sim
