#include <gtest/gtest.h>

#include "perilink/protocol_data.h"
#include "protocol/image.h"

namespace perilink::testing {
namespace {

constexpr uint8_t kCanary = 0xC5;
constexpr size_t kShortcutSlot = 32;
constexpr size_t kMacroSlot = 384;

// Encodes into a slot between canaries and returns the slot.
template <typename Encode>
Image EncodeGuarded(size_t slot_size, Encode encode) {
  Image buffer(slot_size + 32, kCanary);
  encode(buffer.data() + 16);
  EXPECT_EQ(std::count(buffer.begin(), buffer.begin() + 16, kCanary), 16);
  EXPECT_EQ(std::count(buffer.end() - 16, buffer.end(), kCanary), 16);
  return Image(buffer.begin() + 16, buffer.end() - 16);
}

Image Encode(ShortcutKey& shortcut) {
  return EncodeGuarded(kShortcutSlot, [&](uint8_t* slot) { ShortcutKeyToBuffer(&shortcut, slot); });
}
Image Encode(const MacroKey& macro) {
  return EncodeGuarded(kMacroSlot, [&](uint8_t* slot) { MacroKeyToBuffer(&macro, slot); });
}

Image Part(const Image& image, ptrdiff_t first, ptrdiff_t size) {
  return Image(image.begin() + first, image.begin() + first + size);
}

template <typename Record>
bool SameBytes(const Record& a, const Record& b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

TEST(SimpleBlocksTest, EachFieldStandsUnderItsOwnCheck) {
  const uint8_t led_bytes[] = {5, 0x50, 6, 0x00, 7, 0x4E, 8, 0x4D};
  DPILed led{};
  BufferToDPILed(led_bytes, &led);
  EXPECT_TRUE(SameBytes(led, DPILed{{5, 0x80, 7, 8}}));

  const uint8_t bar_bytes[] = {1, 2, 3, 4, 5, 6, 0x41, 9, 0x4C};
  LedBar bar{};
  BufferToLedBar(bar_bytes, &bar);
  EXPECT_TRUE(SameBytes(bar, LedBar{{1, 0xFF, 0xFF, 0xFF, 8, 9, 9}}));

  const uint8_t good[] = {1, 2, 3, 0x4F};
  const uint8_t bad[] = {1, 2, 3, 0x50};
  DPILevel level;
  std::memset(&level, 0xAB, sizeof(level));
  DPILevel expected = level;
  BufferToDPIColor(good, &level);
  expected.color = {{1, 2, 3}};
  EXPECT_TRUE(SameBytes(level, expected));
  BufferToDPIColor(bad, &level);
  expected.color = {{0xFF, 0xFF, 0xFF}};
  EXPECT_TRUE(SameBytes(level, expected));

  KeyFun function{};
  BufferToKeyFunMap(good, &function);
  EXPECT_TRUE(SameBytes(function, KeyFun{{1, 2, 3}}));
  BufferToKeyFunMap(bad, &function);
  EXPECT_TRUE(SameBytes(function, KeyFun{}));
}

TEST(ShortcutTest, EncodesEventsAndCheck) {
  ShortcutKey shortcut{2, {}, {{0, 0x02, {0x04, 0}, 99}, {1, 0, {0x05, 0}, 0}}};
  const Image slot = Encode(shortcut);
  EXPECT_EQ(Part(slot, 0, 8), (Image{0x02, 0x82, 0x04, 0x00, 0x40, 0x05, 0x00, 0x88}));
  EXPECT_EQ(std::count(slot.begin() + 8, slot.end(), kCanary), 24);

  // The whole code travels; an unknown kind travels as 2.
  shortcut.events[0].kind = 2;
  shortcut.events[0].code = 0x12;
  shortcut.events[1].kind = 77;
  const Image wide_code = Encode(shortcut);
  EXPECT_EQ(wide_code[1], 0x12);
  EXPECT_EQ(wide_code[4], 0x00);
  ShortcutKey decoded{};
  BufferToShortcutKey(wide_code.data(), &decoded);
  EXPECT_EQ(decoded.events[0].kind, 2);
  EXPECT_EQ(decoded.events[0].code, 2);
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
    EXPECT_TRUE(SameBytes(shortcut, empty)) << int{count};

    std::memset(&shortcut, 0xAB, sizeof(shortcut));
    BufferToShortcutKey(slot.data(), &shortcut);
    EXPECT_TRUE(SameBytes(shortcut, empty)) << int{count};
  }
}

TEST(MacroTest, EncodesNameEventsAndCheck) {
  MacroKey macro{};
  const Image empty = Encode(macro);
  EXPECT_EQ(empty[0], 0);
  EXPECT_EQ(Part(empty, 31, 2), (Image{0, 0x55}));
  EXPECT_EQ(std::count(empty.begin(), empty.end(), kCanary), 384 - 3);

  macro.name_length = 2;
  macro.name[0] = 'h';
  macro.name[1] = 'i';
  macro.count = 2;
  macro.events[0] = {0, 1, {0x04, 0}, 10};
  macro.events[1] = {1, 1, {0x04, 0}, 300};
  const Image slot = Encode(macro);
  EXPECT_EQ(Part(slot, 0, 4), (Image{2, 'h', 'i', kCanary}));
  EXPECT_EQ(Part(slot, 31, 13), (Image{0x02, 0x81, 0x04, 0x00, 0x00, 0x0A, 0x41, 0x04, 0x00, 0x01,
                                       0x2C, 0x52, kCanary}));

  // Codes are cut to four bits and delays to sixteen; no kind but three.
  macro.events[0] = {2, 0xF3, {0, 0}, 0x12345};
  MacroKey decoded{};
  BufferToMacroKey(Encode(macro).data(), &decoded);
  EXPECT_TRUE(SameBytes(decoded.events[0], KeyEvent{2, 3, {0, 0}, 0x2345}));
}

TEST(MacroTest, DecodesNameAndEventsApart) {
  Image slot(kMacroSlot, 0xFF);
  const uint8_t events[] = {2, 0xC3, 1, 2, 3, 4, 0x30, 5, 6, 7, 8};
  std::memcpy(&slot[31], events, sizeof(events));
  slot[42] = Check(events, sizeof(events));
  std::memcpy(&slot[1], "hello", 5);
  MacroKey filled;
  std::memset(&filled, 0xAB, sizeof(filled));

  slot[0] = 31;
  MacroKey macro = filled;
  BufferToMacroKey(slot.data(), &macro);
  EXPECT_EQ(macro.name_length, 0);
  EXPECT_EQ(std::count(std::begin(macro.name), std::end(macro.name), 0), 30);
  EXPECT_EQ(macro.count, 2);
  EXPECT_TRUE(SameBytes(macro.events[0], KeyEvent{2, 3, {1, 2}, 0x0304}));
  EXPECT_TRUE(SameBytes(macro.events[1], KeyEvent{2, 0, {5, 6}, 0x0708}));
  EXPECT_TRUE(SameBytes(macro.events[2], filled.events[2]));

  slot[0] = 5;
  ++slot[42];
  macro = filled;
  BufferToMacroKey(slot.data(), &macro);
  MacroKey named{};
  named.name_length = 5;
  std::memcpy(named.name, "hello", 5);
  EXPECT_TRUE(SameBytes(macro, named));
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
    EXPECT_TRUE(SameBytes(again, shortcut));
  }
  const ProtocolData record = RandomRecord(random);
  const Image image = BuildImage(record);
  for (size_t k = 0; k < 16; ++k) {
    MacroKey macro{};
    BufferToMacroKey(&image[768 + kMacroSlot * k], &macro);
    const Image slot = Part(image, static_cast<ptrdiff_t>(768 + kMacroSlot * k), kMacroSlot);
    const Image encoded = Encode(macro);
    EXPECT_EQ(Part(encoded, 31, 2 + 5 * macro.count), Part(slot, 31, 2 + 5 * macro.count));
    EXPECT_EQ(Part(encoded, 0, 1 + macro.name_length), Part(slot, 0, 1 + macro.name_length));
    ShortcutKey shortcut{};
    BufferToShortcutKey(&image[256 + kShortcutSlot * k], &shortcut);
    const ptrdiff_t length = shortcut.count == 0 ? 1 : 2 + 3 * shortcut.count;
    EXPECT_EQ(Part(Encode(shortcut), 0, length),
              Part(image, static_cast<ptrdiff_t>(256 + kShortcutSlot * k), length));
  }
}

}  // namespace
}  // namespace perilink::testing
