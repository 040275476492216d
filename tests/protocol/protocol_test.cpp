// Images of the configuration: parsers, converters and what differs.
#include <gtest/gtest.h>

#include "perilink/protocol_data.h"
#include "protocol/compare.h"
#include "protocol/image.h"
#include "protocol/stored.h"

namespace perilink::testing {
namespace {

// What a record filled with `fill` holds after an image in which nothing is valid.
ProtocolData AllDefaults(uint8_t fill) {
  ProtocolData record;
  std::memset(&record, fill, sizeof(record));
  const uint8_t settings[] = {1, 6, 2, 0, 0, 0, 8, 1, 6, 0, 0, 0, 0, 6, 0};
  std::memcpy(&record, settings, sizeof(settings));
  for (DPILevel& level : record.dpi_levels) {
    const uint8_t bytes[] = {0xFF, 0xFF, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0};
    std::memcpy(&level, bytes, sizeof(bytes));
  }
  record.dpi_led = {{2, 0x80, 3, 1}};
  record.led_bar = {{1, 0xFF, 0xFF, 0xFF, 8, 9, 1}};
  std::memset(record.key_functions, 0, sizeof(record.key_functions));
  for (ShortcutKey& shortcut : record.shortcuts) {
    shortcut.count = 0;
    std::memset(shortcut.events, 0, sizeof(shortcut.events));
  }
  std::memset(record.macros, 0, sizeof(record.macros));
  return record;
}

// Any other image is a fuzz target's, as slots are.
TEST(ParserTest, ErasedAndWholeImages) {
  ProtocolData record;
  std::memset(&record, 0xAB, sizeof(record));
  ProtocolDataParser(Image(PERILINK_FLASH_IMAGE_SIZE, 0xFF).data(), &record);
  EXPECT_TRUE(Same(record, AllDefaults(0xAB)));
  Random random(2);
  const ProtocolData whole = RandomRecord(random);
  record = {};
  ProtocolDataParser(BuildImage(whole).data(), &record);
  EXPECT_TRUE(Same(record, whole));
}

// ---- Slots that differ; fields are a fuzz target's ----------------------------------------------

Image Data(const FlashWrite& write) {
  return Image(write.bytes().begin(), write.bytes().end());
}

// The one write that the compare gives.
FlashWrite OnlyWrite(ProtocolData& record, ProtocolData& previous) {
  const std::vector<FlashWrite> writes = CompareProtocolData(record, previous);
  EXPECT_EQ(writes.size(), 1u);
  return writes.empty() ? FlashWrite{} : writes.front();
}

TEST(CompareTest, ChangedShortcuts) {
  ProtocolData previous{};
  ProtocolData record{};
  ShortcutKey& shortcut = record.shortcuts[15];
  ShortcutKey& old = previous.shortcuts[15];
  shortcut = {2, {}, {{0, 2, {4, 0}, 0}, {1, 0, {5, 0}, 0}}};
  old = {3, {}, {{}, {}, {0, 0, {6, 0}, 0}}};
  EXPECT_EQ(OnlyWrite(record, previous).length, 8);
  EXPECT_EQ(old.events[1].keys[0], 5);
  EXPECT_EQ(old.events[2].keys[0], 6);  // beyond the new count: kept

  for (const uint8_t count : Image{0, 1, 7, 200}) {
    shortcut.count = count;
    old = {3, {}, {{}, {0, 0, {5, 0}, 0}}};
    EXPECT_EQ(Data(OnlyWrite(record, previous)), (Image{count, 0xFF}));
    EXPECT_TRUE(Same(shortcut, ShortcutKey{}));
    EXPECT_TRUE(Same(old, ShortcutKey{0, {}, {{}, {0, 0, {5, 0}, 0}}}));

    // An invalid shortcut in both writes nothing and is emptied in both.
    shortcut.count = old.count = count;
    EXPECT_TRUE(CompareProtocolData(record, previous).empty());
    EXPECT_TRUE(Same(shortcut, ShortcutKey{}));
    EXPECT_TRUE(Same(old, ShortcutKey{}));
  }
}

TEST(CompareTest, ChangedMacros) {
  ProtocolData previous{};
  ProtocolData record{};
  MacroKey& macro = record.macros[1];
  MacroKey& old = previous.macros[1];
  old = {2, {'x', 'x'}, 0, {}};
  macro = {1, {'a'}, 0, {}};
  const FlashWrite write = OnlyWrite(record, previous);
  EXPECT_EQ(write.address, 768 + 384);
  Image expected(33, 0xFF);
  expected[0] = 1;
  expected[1] = 'a';
  expected[31] = 0;
  expected[32] = 0x55;
  EXPECT_EQ(Data(write), expected);
  EXPECT_TRUE(Same(old, MacroKey{1, {'a', 'x'}, 0, {}}));  // beyond the new length: kept

  // A delay's upper half never reaches the device: no write, and the old record keeps its own.
  macro.count = old.count = 70;
  macro.events[69].delay = 0x10000;
  EXPECT_TRUE(CompareProtocolData(record, previous).empty());
  EXPECT_EQ(old.events[69].delay, 0u);
  macro.events[69].delay = 0x10001;
  EXPECT_EQ(OnlyWrite(record, previous).length, 383);
  EXPECT_EQ(old.events[69].delay, 0x10001u);

  // One that fits no slot is passed over, even by its name's length alone; the other way round the
  // device is given what fits, whatever it held.
  for (const auto& [name_length, count] : {std::pair{31, 2}, {1, 71}, {255, 255}}) {
    const MacroKey kept = old = {30, {'a'}, 2, {}};
    macro.name_length = static_cast<uint8_t>(name_length);
    macro.count = static_cast<uint8_t>(count);
    ++record.report_rate;
    EXPECT_EQ(OnlyWrite(record, previous).address, 0);
    EXPECT_TRUE(Same(old, kept));
    EXPECT_EQ(OnlyWrite(previous, record).address, 768 + 384);
    EXPECT_EQ(macro.count, 2);
  }
}

}  // namespace
}  // namespace perilink::testing
