// A configuration on its way into a device that is lost on the way.
#include <gtest/gtest.h>

#include <algorithm>

#include "common/config.h"
#include "config/config_device.h"
#include "exit_codes.h"
#include "perilink/protocol.h"
#include "protocol/image.h"
#include "server/inbox.h"
#include "sim/mouse.h"

namespace perictl {
namespace {

namespace sim = perilink::sim;
using perilink::tools::ConfigDifferences;
using perilink::tools::ConfigParts;
using perilink::tools::DeviceConfig;
using perilink::tools::DeviceConfigFromImage;
using perilink::tools::UnsoundParts;

sim::FlashImage FlashOf(const ProtocolData& record) {
  sim::FlashImage flash;
  flash.SetBytes(0, perilink::testing::BuildImage(record));
  return flash;
}

ProtocolData RecordOf(const sim::FlashImage& flash) {
  return DeviceConfigFromImage(flash.bytes().first(PERILINK_FLASH_IMAGE_SIZE)).record;
}

// With few slots, for the sake of time. Names are under no check, and the same in all.
ProtocolData SomeRecord(unsigned seed) {
  perilink::testing::Random random(seed);
  ProtocolData record = perilink::testing::RandomRecord(random);
  for (size_t slot = 0; slot < std::size(record.macros); ++slot) {
    if (slot > 3) record.shortcuts[slot] = {};
    MacroKey& macro = record.macros[slot];
    macro.count = static_cast<uint8_t>(slot > 1 ? 0 : 2 + 7 * (seed + slot) % 10);
    std::fill(std::begin(macro.events) + macro.count, std::end(macro.events), KeyEvent{});
    macro.name_length = 2;
    std::fill(std::begin(macro.name), std::end(macro.name), uint8_t{0});
    std::fill_n(macro.name, 2, uint8_t{'n'});
  }
  return record;
}

// As the command does it.
void Load(sim::Mouse& mouse, const ProtocolData& record) {
  ConfigDevice device(mouse.CommandPathNarrow(), false);
  const DeviceConfig before = device.Read();
  device.Write(PlanUpdate(before, record, [](const auto&) { return true; }));
}

// The memory of a device that lost its power holds each part as it was or as it shall be, or shows
// that it is neither.
void ExpectOldOrNewOrBad(const sim::FlashImage& flash, const ProtocolData& old_record,
                         const ProtocolData& new_record) {
  const DeviceConfig now = DeviceConfigFromImage(flash.bytes().first(PERILINK_FLASH_IMAGE_SIZE));
  const std::vector<std::string> bad = UnsoundParts(now).names();
  for (const auto& part : ConfigParts()) {
    if (std::find(bad.begin(), bad.end(), part.name) != bad.end()) continue;
    const auto bytes = EncodedPart(now.record, part);
    EXPECT_TRUE(bytes == EncodedPart(old_record, part) || bytes == EncodedPart(new_record, part))
        << part.name;
  }
}

// Half of a write is stored and the power goes; or it is stored and not acknowledged, so that the
// next one's is as if it had not begun. A quarter of the positions each, so that they run side by
// side.
class LostUpdate : public testing::TestWithParam<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Quarters, LostUpdate, testing::Range(0u, 8u));

TEST_P(LostUpdate, LeavesOldOrNewOrBadAtEachWriteAndIsRepeated) {
  const bool power = GetParam() % 2 != 0;
  uint64_t write = 1 + GetParam() / 2;
  sim::Mouse mouse;
  const ProtocolData old_record = SomeRecord(1);
  const ProtocolData new_record = SomeRecord(2);
  for (bool lost = true; lost && !HasFailure(); write += 4) {
    SCOPED_TRACE(write);
    mouse.flash() = FlashOf(old_record);
    mouse.Plug();
    if (power) {
      mouse.faults().LosePower(sim::At(write), sim::PowerLoss::kDuringWrite);
    } else {
      mouse.faults().UnplugAfter(sim::At(write).For(PERILINK_COMMAND_WRITE_MEMORY));
    }
    try {
      Load(mouse, new_record);
      lost = false;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code(), ExitCode::kNoDevice) << failure.what();
    }
    mouse.faults().Heal();
    ExpectOldOrNewOrBad(mouse.flash(), old_record, new_record);
    mouse.Plug();
    Load(mouse, new_record);
    EXPECT_TRUE(ConfigDifferences(RecordOf(mouse.flash()), new_record).empty());
    EXPECT_TRUE(mouse.flash().InvalidFields().empty());
  }
  const auto differs = [&](const auto& part) {
    return EncodedPart(old_record, part) != EncodedPart(new_record, part);
  };
  EXPECT_GT(static_cast<ptrdiff_t>(write), std::ranges::count_if(ConfigParts(), differs))
      << "a frame for each, or more";
}

// The newest may be an outcome.
TEST(InboxTest, LosesTheOldestAndCountsThem) {
  Inbox<size_t> inbox;
  for (size_t i = 0; i < kInboxLimit + 2; ++i)
    inbox.Put(i);
  EXPECT_EQ(inbox.Next(0), 2u);
  EXPECT_EQ(inbox.TakeLost(), 2u);
  EXPECT_EQ(inbox.TakeLost(), 0u);
}

}  // namespace
}  // namespace perictl
