// A configuration on its way into a device that is lost on the way.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "common/config.h"
#include "config/config_device.h"
#include "exit_codes.h"
#include "perilink/protocol.h"
#include "server/inbox.h"
#include "sim/mouse.h"

namespace perictl {
namespace {

namespace sim = perilink::sim;
using perilink::tools::ConfigDifferences;
using perilink::tools::ConfigParts;
using perilink::tools::DeviceConfig;
using perilink::tools::DeviceConfigFromImage;
using perilink::tools::PartKind;
using perilink::tools::UnsoundParts;

sim::FlashImage OldFlash() {
  const sim::SlotEvent events[] = {{0, 2, 4, 0, 20}, {1, 2, 4, 0, 30}, {0, 1, 5, 0, 40},
                                   {1, 1, 5, 0, 50}, {2, 0, 6, 1, 60}, {2, 3, 7, 1, 70}};
  sim::FlashImage flash = sim::FlashImage::Default();
  flash.SetField(2, {8});  // the new level is none that a host believes until both are written
  flash.SetField(4, {6});
  flash.SetShortcut(1, std::span(events, 3));
  flash.SetShortcut(2, std::span(events, 5));
  flash.SetMacro(0, "before", std::span(events, 4));
  flash.SetMacro(5, "to be removed", events);
  return flash;
}

ProtocolData RecordOf(const sim::FlashImage& flash) {
  return DeviceConfigFromImage(flash.bytes().first(PERILINK_FLASH_IMAGE_SIZE)).record;
}

// Differs in every field, and in slots that grow, shrink, come and go. Every byte grows by one, or
// a switch turns: the check bytes are sums, which some mixtures of other values would satisfy.
ProtocolData NewRecord(const ProtocolData& before) {
  ProtocolData record = before;
  uint8_t* const bytes = &record.report_rate;
  for (const auto& part : ConfigParts()) {
    if (part.kind != PartKind::kField) continue;
    std::for_each(bytes + part.offset, bytes + part.offset + part.size, [&part](uint8_t& byte) {
      const bool is_switch = part.rule == perilink::FieldRule::kSwitch ||
                             part.rule == perilink::FieldRule::kNormalizedSwitch;
      byte = static_cast<uint8_t>(is_switch ? byte ^ 1 : byte + 1);
    });
  }
  record.dpi_level_count = 3;
  record.current_dpi_level = 2;
  record.shortcuts[1].count = 6;
  for (KeyEvent& event : record.shortcuts[1].events)
    event = {1, 9, {0x33, 0x44}, 0};
  record.shortcuts[2] = {};
  record.shortcuts[9] = before.shortcuts[1];
  record.macros[7] = before.macros[0];
  record.macros[0].name_length = 30;
  std::fill_n(record.macros[0].name, 30, uint8_t{'n'});
  record.macros[0].count = 7;
  std::fill_n(record.macros[0].events, 7, KeyEvent{0, 7, {8, 9}, 300});
  record.macros[5] = {};
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
  DeviceConfig now = DeviceConfigFromImage(flash.bytes().first(PERILINK_FLASH_IMAGE_SIZE));
  const std::vector<std::string> bad = UnsoundParts(now).names();
  for (size_t i = 0; i < std::size(now.record.macros); ++i) {
    // Names are under no check.
    now.record.macros[i].name_length = 0;
    std::fill_n(now.record.macros[i].name, sizeof(MacroKey::name), uint8_t{0});
  }
  for (const auto& part : ConfigParts()) {
    if (std::find(bad.begin(), bad.end(), part.name) != bad.end()) continue;
    const auto is_as_in = [&](ProtocolData record) {
      MacroKey& macro = record.macros[part.slot];
      macro.name_length = 0;
      std::fill_n(macro.name, sizeof macro.name, uint8_t{0});
      return EncodedPart(now.record, part) == EncodedPart(record, part);
    };
    EXPECT_TRUE(is_as_in(old_record) || is_as_in(new_record)) << part.name;
  }
}

// Frames of all fields, of the shortcuts, of the macros.
uint64_t Frames() {
  return ConfigParts().size() - 2 * std::size(ProtocolData{}.macros) + 6 + 16;
}

using Loss = std::function<void(sim::Faults& faults, uint64_t write)>;

// A quarter of the positions each, so that they run side by side.
class LostUpdate : public testing::TestWithParam<uint64_t> {
 protected:
  static void LoseAtEachWrite(const Loss& loss) {
    sim::Mouse mouse;
    const sim::FlashImage old_flash = OldFlash();
    const ProtocolData old_record = RecordOf(old_flash);
    const ProtocolData new_record = NewRecord(old_record);
    uint64_t write = GetParam();
    for (bool lost = true; lost && !HasFailure(); write += 4) {
      SCOPED_TRACE(write);
      mouse.flash() = old_flash;
      mouse.Plug();
      loss(mouse.faults(), write);
      try {
        Load(mouse, new_record);
        lost = false;
        EXPECT_GT(write, Frames());
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
    EXPECT_GT(write, Frames());
  }
};
INSTANTIATE_TEST_SUITE_P(Quarters, LostUpdate, testing::Values(1, 2, 3, 4));

// Half of the write is stored.
TEST_P(LostUpdate, PowerIsLostDuringEachWrite) {
  LoseAtEachWrite([](sim::Faults& faults, uint64_t write) {
    faults.LosePower(sim::At(write), sim::PowerLoss::kDuringWrite);
  });
}

// The write is stored and not acknowledged; so the next one's is as if it had not begun.
TEST_P(LostUpdate, CableIsLostAfterEachWrite) {
  LoseAtEachWrite([](sim::Faults& faults, uint64_t write) {
    faults.UnplugAfter(sim::At(write).For(PERILINK_COMMAND_WRITE_MEMORY));
  });
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
