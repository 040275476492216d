#include "sim/faults.h"

#include <gtest/gtest.h>

#include "host.h"

namespace perilink::sim {
namespace {

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

TEST(Faults, ScriptedFaultsHappenOnTheirOccasions) {
  const Frame stray = MakeFrame(command::kRssi, 1);
  const struct {
    const char* name;
    std::function<void(Faults&)> add;
    std::vector<std::string> shapes;  // of one request after another
  } scripts[] = {
      {"drop", [](Faults& f) { f.Drop(Next(2)); }, {"", "", "v"}},
      {"checksum", [](Faults& f) { f.CorruptChecksum(At(3)); }, {"v", "v", "s", "v"}},
      {"data", [](Faults& f) { f.CorruptData(At(2)); }, {"v", "?", "v"}},
      {"command", [](Faults& f) { f.WrongCommand(Next()); }, {"?", "v"}},
      {"event", [](Faults& f) { f.StrayEventBefore(At(1)); }, {"ev", "v"}},
      {"stray", [&](Faults& f) { f.StrayReportBefore(At(1), stray); }, {"?v", "v"}},
      {"duplicate", [](Faults& f) { f.Duplicate(Next()); }, {"vv", "v"}},
      {"truncate", [](Faults& f) { f.Truncate(Next(), 1); }, {"?", "v"}},
      {"ignore", [](Faults& f) { f.Ignore(At(2)); }, {"v", "", "v"}},
      {"late", [](Faults& f) { f.AnswerAfter(At(2), 12'000); }, {"v", "", "vv"}},
      {"silence", [](Faults& f) { f.Silence(); }, {"", "", ""}},
      {"from", [](Faults& f) { f.Drop(From(3)); }, {"v", "v", "", ""}},
      {"command filter", [](Faults& f) { f.Drop(Always().For(command::kRssi)); }, {"v", "v"}},
      // Each counts its own occasions; a dropped reply is an occasion for the others as well.
      {"drop, then checksum",
       [](Faults& f) { f.Drop(Next(1)).CorruptChecksum(At(2)).Duplicate(At(2)); },
       {"", "ss", "v"}},
  };
  for (const auto& script : scripts) {
    SCOPED_TRACE(script.name);
    Host host;
    script.add(host.mouse.faults());
    for (const std::string& shape : script.shapes) {
      host.Exchange(MakeFrame(command::kVersion, 0));
      EXPECT_EQ(Shape(host), shape);
    }
    host.mouse.faults().Heal();
    host.Exchange(MakeFrame(command::kVersion, 0));
    EXPECT_EQ(Shape(host), "v");
  }
}

TEST(Faults, LosingPowerLeavesAFlashWriteUndoneOrTorn) {
  for (const PowerLoss kind : {PowerLoss::kBeforeWrite, PowerLoss::kDuringWrite}) {
    Host host;
    host.mouse.faults().LosePower(At(2), kind);
    const Bytes level = {0x33, 0x33, 0x01, CheckOf(Bytes{0x33, 0x33, 0x01})};
    host.Exchange(MakeFrame(command::kWriteMemory, 4, level, 12));
    EXPECT_EQ(host.Exchange(MakeFrame(command::kWriteMemory, 4, level, 16)), 0u);
    EXPECT_EQ(host.mouse.mode(), Mode::kUnplugged);
    host.mouse.Plug();
    EXPECT_EQ(host.mouse.flash()[12], 0x33);
    const bool torn = kind == PowerLoss::kDuringWrite;
    EXPECT_EQ(host.mouse.flash().InvalidFields(), std::vector<uint16_t>(torn ? 1 : 0, 16));
  }
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
