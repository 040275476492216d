// Images of the configuration: parsers, converters and what differs.
#include <gtest/gtest.h>

#include <map>

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

// The bytes of a record that a parser makes of an image.
template <typename Parser>
Image Parsed(Parser parser, const Image& image) {
  return Guarded(sizeof(ProtocolData), [&](uint8_t* record) {
    parser(image.data(), reinterpret_cast<ProtocolData*>(record));
  });
}

// Any bytes: fields under a right check byte come through, all others take their default or keep
// what the record held.
TEST(ParserTest, AnyImageGivesARecord) {
  Random random(2);
  const std::vector<Place> places = Places();
  for (int run = 0; run < 500; ++run) {
    Image image = BuildImage(RandomRecord(random));
    if (run % 4 == 0) Fill(random, image.data(), image.size());
    if (run == 0) image.assign(image.size(), 0xFF);
    for (int hits = run % 200; hits > 0; --hits) {
      image[random() % image.size()] = RandomByte(random);
      // Any value under a right check byte; every second one an irregular setting.
      const Place& place = places[random() % (hits % 2 == 0 ? places.size() : 15)];
      Fill(random, &image[place.address], place.width);
      if (hits % 4 == 1) image[place.address] &= 7;
      image[place.address + place.width] = sim::CheckOf({&image[place.address], place.width});
    }
    const Image bytes = Parsed(ProtocolDataParser, image);

    ProtocolData expected = AllDefaults(kCanary);
    if (run == 0) {
      EXPECT_EQ(std::memcmp(bytes.data(), &expected, sizeof(expected)), 0);
    }
    for (const Place& place : places) {
      const uint8_t* value = &image[place.address];
      if (sim::CheckOf({value, place.width}) != value[place.width]) continue;
      if (place.offset == 2 && *value >= expected.dpi_level_count) continue;
      uint8_t* target = Bytes(expected) + place.offset;
      std::memcpy(target, value, place.width);
      if (place.offset == 7 || (place.offset >= 9 && place.offset <= 12)) *target = *value != 0;
    }
    ASSERT_EQ(std::memcmp(bytes.data(), &expected, offsetof(ProtocolData, shortcuts)), 0) << run;
    // The settings block alone: nothing behind them belongs to it.
    image.resize(PERILINK_SETTINGS_BLOCK_SIZE);
    image.shrink_to_fit();
    const size_t end = offsetof(ProtocolData, dpi_levels);
    std::memset(Bytes(expected) + end, kCanary, sizeof(expected) - end);
    ASSERT_EQ(std::memcmp(Parsed(MouseConfigParser, image).data(), &expected, sizeof(expected)), 0);
  }
}

// ---- Converters ---------------------------------------------------------------------------------

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

// ---- What differs -------------------------------------------------------------------------------

Image Data(const FlashWrite& write) {
  return Image(write.bytes().begin(), write.bytes().end());
}

// The one write that the compare gives.
FlashWrite OnlyWrite(ProtocolData& record, ProtocolData& previous) {
  const std::vector<FlashWrite> writes = CompareProtocolData(record, previous);
  EXPECT_EQ(writes.size(), 1u);
  return writes.empty() ? FlashWrite{} : writes.front();
}

TEST(CompareTest, EveryByteOfASimpleFieldIsWrittenWithItsFieldAlone) {
  Random random(1);
  const ProtocolData old = RandomRecord(random);
  for (const Place& place : Places()) {
    for (size_t i = 0; i < place.width; ++i) {
      ProtocolData record = old;
      ProtocolData previous = old;
      Bytes(record)[place.offset + i] ^= 0x5A;
      const FlashWrite write = OnlyWrite(record, previous);
      EXPECT_EQ(write.address, place.address);
      Image expected(Bytes(record) + place.offset, Bytes(record) + place.offset + place.width);
      if (place.offset == 7) expected[0] = 1;
      expected.push_back(sim::CheckOf(expected));
      EXPECT_EQ(Data(write), expected) << place.offset;
      EXPECT_TRUE(Same(previous, record)) << place.offset;
    }
  }
  // Bytes that nobody uses are neither written nor copied.
  for (size_t offset = 0; offset < offsetof(ProtocolData, shortcuts) + 2; ++offset) {
    const auto holds = [&](const Place& it) {
      return offset >= it.offset && offset < it.offset + it.width;
    };
    const std::vector<Place> places = Places();
    const bool is_count = offset == offsetof(ProtocolData, shortcuts);
    if (is_count || std::any_of(places.begin(), places.end(), holds)) continue;
    ProtocolData record = old;
    ProtocolData previous = old;
    Bytes(record)[offset] ^= 1;
    EXPECT_TRUE(CompareProtocolData(record, previous).empty()) << offset;
    EXPECT_TRUE(Same(previous, old)) << offset;
  }
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

// That they turn one device into another is the simulation's to hold.
TEST(CompareTest, WritesComeInTheOrderOfTheRecord) {
  std::vector<size_t> order;
  for (const Place& place : Places())
    order.push_back(place.address);
  for (size_t k = 0; k < 2 * sim::kSlotCount; ++k)
    order.push_back(k < 16 ? sim::ShortcutAddress(k) : sim::MacroAddress(k - 16));
  Random random(3);
  ProtocolData previous;
  std::memset(&previous, 0xEE, sizeof(previous));
  ProtocolData record = RandomRecord(random);
  record.switch7 = 0;
  std::vector<size_t> written;
  for (const FlashWrite& write : CompareProtocolData(record, previous)) {
    written.push_back(write.address);
    if (write.address == 171) {
      EXPECT_EQ(Data(write), (Image{0, 0x55}));
    }
  }
  EXPECT_EQ(written, order);
  EXPECT_TRUE(CompareProtocolData(record, previous).empty());
}

}  // namespace
}  // namespace perilink::testing
