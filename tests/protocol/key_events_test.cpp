#include <gtest/gtest.h>

#include "perilink/protocol_data.h"
#include "protocol/image.h"

namespace perilink::testing {
namespace {

constexpr size_t kMacroSlot = sim::kMacroSlotSize;

Image Encode(ShortcutKey& shortcut) {
  return Guarded(sim::kShortcutSlotSize,
                 [&](uint8_t* slot) { ShortcutKeyToBuffer(&shortcut, slot); });
}
Image Encode(const MacroKey& macro) {
  return Guarded(kMacroSlot, [&](uint8_t* slot) { MacroKeyToBuffer(&macro, slot); });
}

Image Part(const Image& image, ptrdiff_t first, ptrdiff_t size) {
  return Image(image.begin() + first, image.begin() + first + size);
}

// The record that a converter leaves of one full of 0xAB.
template <typename Record>
Record Decoded(void (*convert)(const uint8_t*, Record*), const Image& bytes) {
  Record record;
  std::memset(&record, 0xAB, sizeof(record));
  convert(bytes.data(), &record);
  return record;
}

TEST(SimpleBlocksTest, EachFieldStandsUnderItsOwnCheck) {
  EXPECT_TRUE(
      Same(Decoded(BufferToDPILed, {5, 0x50, 6, 0x00, 7, 0x4E, 8, 0x4D}), DPILed{{5, 0x80, 7, 8}}));
  EXPECT_TRUE(Same(Decoded(BufferToLedBar, {1, 2, 3, 4, 5, 6, 0x41, 9, 0x4C}),
                   LedBar{{1, 0xFF, 0xFF, 0xFF, 8, 9, 9}}));
  const Image good = {1, 2, 3, 0x4F};
  const Image bad = {1, 2, 3, 0x50};
  EXPECT_TRUE(Same(Decoded(BufferToKeyFunMap, good), KeyFun{{1, 2, 3}}));
  EXPECT_TRUE(Same(Decoded(BufferToKeyFunMap, bad), KeyFun{}));
  DPILevel level;
  std::memset(&level, 0xAB, sizeof(level));
  level.color = {{1, 2, 3}};
  EXPECT_TRUE(Same(Decoded(BufferToDPIColor, good), level));
  level.color = {{0xFF, 0xFF, 0xFF}};
  EXPECT_TRUE(Same(Decoded(BufferToDPIColor, bad), level));
}

TEST(ShortcutTest, EncodesEventsAndCheck) {
  ShortcutKey shortcut{2, {}, {{0, 0x02, {0x04, 0}, 99}, {1, 0, {0x05, 0}, 0}}};
  const Image slot = Encode(shortcut);
  EXPECT_EQ(Part(slot, 0, 9), (Image{2, 0x82, 0x04, 0x00, 0x40, 0x05, 0x00, 0x88, kCanary}));

  // The whole code travels; an unknown kind travels as 2.
  shortcut.events[0] = {2, 0x12, {}, 0};
  shortcut.events[1] = {77, 0, {}, 0};
  const Image wide_code = Encode(shortcut);
  EXPECT_EQ(Part(wide_code, 0, 5), (Image{2, 0x12, 0, 0, 0x00}));
  EXPECT_TRUE(Same(Decoded(BufferToShortcutKey, wide_code).events[0], KeyEvent{2, 2, {}, 0}));
}

TEST(ShortcutTest, ACountOutOfRangeEmptiesTheRecord) {
  for (const uint8_t count : Image{0, 1, 7, 255}) {
    ShortcutKey shortcut;
    std::memset(&shortcut, 0xAB, sizeof(shortcut));
    shortcut.count = count;
    const Image slot = Encode(shortcut);
    EXPECT_EQ(slot[0], count);
    EXPECT_EQ(std::count(slot.begin() + 1, slot.end(), kCanary), 31);
    const ShortcutKey empty{0, {0xAB, 0xAB, 0xAB}, {}};
    EXPECT_TRUE(Same(shortcut, empty)) << int{count};
    EXPECT_TRUE(Same(Decoded(BufferToShortcutKey, slot), empty)) << int{count};
  }
}

TEST(MacroTest, EncodesNameEventsAndCheck) {
  MacroKey macro{};
  const Image empty = Encode(macro);
  EXPECT_EQ(empty[0], 0);
  EXPECT_EQ(Part(empty, 31, 2), (Image{0, 0x55}));
  EXPECT_EQ(std::count(empty.begin(), empty.end(), kCanary), 384 - 3);

  macro = {2, {'h', 'i'}, 2, {{0, 1, {0x04, 0}, 10}, {1, 1, {0x04, 0}, 300}}};
  const Image slot = Encode(macro);
  EXPECT_EQ(Part(slot, 0, 4), (Image{2, 'h', 'i', kCanary}));
  EXPECT_EQ(Part(slot, 31, 13), (Image{0x02, 0x81, 0x04, 0x00, 0x00, 0x0A, 0x41, 0x04, 0x00, 0x01,
                                       0x2C, 0x52, kCanary}));

  // Codes are cut to four bits and delays to sixteen; no kind but three.
  macro.events[0] = {2, 0xF3, {0, 0}, 0x12345};
  EXPECT_TRUE(
      Same(Decoded(BufferToMacroKey, Encode(macro)).events[0], KeyEvent{2, 3, {0, 0}, 0x2345}));
}

TEST(MacroTest, DecodesNameAndEventsApart) {
  Image slot(kMacroSlot, 0xFF);
  const uint8_t events[] = {2, 0xC3, 1, 2, 3, 4, 0x30, 5, 6, 7, 8};
  std::memcpy(&slot[31], events, sizeof(events));
  slot[42] = sim::CheckOf(events);
  std::memcpy(&slot[0], "\x1Fhello", 6);  // 31: too long for a name
  MacroKey expected;
  std::memset(&expected, 0xAB, sizeof(expected));
  expected.name_length = 0;
  std::memset(expected.name, 0, sizeof(expected.name));
  expected.count = 2;
  expected.events[0] = {2, 3, {1, 2}, 0x0304};
  expected.events[1] = {2, 0, {5, 6}, 0x0708};
  EXPECT_TRUE(Same(Decoded(BufferToMacroKey, slot), expected));

  slot[0] = 5;
  ++slot[42];
  expected = {5, {'h', 'e', 'l', 'l', 'o'}, 0, {}};
  EXPECT_TRUE(Same(Decoded(BufferToMacroKey, slot), expected));
}

TEST(KeyEventsTest, NoRecordAndNoSlotLeadsBeyondItsBytes) {
  Random random(1);
  for (int run = 0; run < 2000; ++run) {
    MacroKey macro;
    ShortcutKey shortcut;
    Fill(random, &macro, sizeof(macro));
    Fill(random, &shortcut, sizeof(shortcut));
    const Image macro_slot = Encode(macro);
    const Image shortcut_slot = Encode(shortcut);
    EXPECT_EQ(macro_slot[0], std::min<int>(macro.name_length, 30));
    EXPECT_EQ(macro_slot[31], std::min<int>(macro.count, 70));

    BufferToMacroKey(macro_slot.data(), &macro);
    BufferToShortcutKey(shortcut_slot.data(), &shortcut);
    const uint8_t count = macro_slot[31];
    EXPECT_EQ(macro.count, count >= 2 ? count : 0);
    if (macro.count != 0) {
      EXPECT_EQ(Part(Encode(macro), 31, 2 + 5 * count), Part(macro_slot, 31, 2 + 5 * count));
    }
    ShortcutKey again = shortcut;
    Encode(again);
    EXPECT_TRUE(Same(again, shortcut));
  }
}

}  // namespace
}  // namespace perilink::testing
