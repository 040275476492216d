#include "protocol/compare.h"

#include <gtest/gtest.h>

#include "perilink/protocol_data.h"
#include "protocol/image.h"

namespace perilink::testing {
namespace {

Image Data(const FlashWrite& write) {
  return Image(write.bytes().begin(), write.bytes().end());
}

void Apply(const std::vector<FlashWrite>& writes, Image& image) {
  for (const FlashWrite& write : writes) {
    std::copy(write.bytes().begin(), write.bytes().end(), image.begin() + write.address);
  }
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

// Writing what differs into the old image gives an image of the new record, and the writes come
// in the record's order.
TEST(CompareTest, WritesTurnOneDeviceIntoAnother) {
  std::vector<size_t> order;
  for (const Place& place : Places())
    order.push_back(place.address);
  for (size_t k = 0; k < 2 * sim::kSlotCount; ++k)
    order.push_back(k < 16 ? sim::ShortcutAddress(k) : sim::MacroAddress(k - 16));
  Random random(3);
  for (int run = 0; run < 300; ++run) {
    ProtocolData previous = RandomRecord(random);
    ProtocolData record = run % 2 == 0 ? RandomRecord(random) : previous;
    for (int changes = run % 7; changes > 0; --changes) {
      const ProtocolData other = RandomRecord(random);
      record.macros[random() % 16] = other.macros[0];
      record.shortcuts[random() % 16] = other.shortcuts[0];
      record.key_functions[random() % 16] = other.key_functions[0];
      record.dpi_levels[random() % 8] = other.dpi_levels[0];
    }
    Image image = BuildImage(previous);
    const std::vector<FlashWrite> writes = CompareProtocolData(record, previous);
    Apply(writes, image);
    ProtocolData parsed{};
    ProtocolDataParser(image.data(), &parsed);
    ASSERT_TRUE(Same(parsed, record)) << run;
    ASSERT_TRUE(CompareProtocolData(record, previous).empty()) << run;

    auto at = order.begin();
    for (const FlashWrite& write : writes) {
      at = std::find(at, order.end(), write.address);
      ASSERT_NE(at++, order.end()) << write.address;
    }
  }
}

// Whatever the two records hold: no write leaves its slot, and the compare settles.
TEST(CompareTest, AnyTwoRecordsSettle) {
  Random random(4);
  for (int run = 0; run < 200; ++run) {
    ProtocolData record;
    ProtocolData previous;
    Fill(random, &record, sizeof(record));
    Fill(random, &previous, sizeof(previous));
    Image image(PERILINK_FLASH_IMAGE_SIZE);
    Apply(CompareProtocolData(record, previous), image);
    EXPECT_TRUE(CompareProtocolData(record, previous).empty());
    EXPECT_TRUE(CompareProtocolData(record, record).empty());
  }
}

}  // namespace
}  // namespace perilink::testing
