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
      expected.push_back(Check(expected.data(), expected.size()));
      EXPECT_EQ(Data(write), expected) << place.offset;
      EXPECT_TRUE(Same(previous, record)) << place.offset;
    }
  }
  // Bytes that nobody uses are neither written nor copied.
  for (const int offset : {18, 19, 46, 47, 59, 203, 205}) {
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
  record.shortcuts[15] = {2, {}, {{0, 2, {4, 0}, 0}, {1, 0, {5, 0}, 0}}};
  std::memset(&previous.shortcuts[15], 6, sizeof(previous.shortcuts[15]));
  FlashWrite write = OnlyWrite(record, previous);
  EXPECT_EQ(write.address, 256 + 32 * 15);
  EXPECT_EQ(Data(write), (Image{0x02, 0x82, 0x04, 0x00, 0x40, 0x05, 0x00, 0x88}));
  EXPECT_EQ(previous.shortcuts[15].count, 2);
  EXPECT_EQ(previous.shortcuts[15].events[1].keys[0], 5);
  EXPECT_EQ(previous.shortcuts[15].events[2].keys[0], 6);  // beyond the new count: kept

  for (const uint8_t count : Image{0, 1, 7, 200}) {
    record.shortcuts[15].count = count;
    previous.shortcuts[15].count = 3;
    previous.shortcuts[15].events[1].keys[0] = 5;
    EXPECT_EQ(Data(OnlyWrite(record, previous)), (Image{count, 0xFF}));
    EXPECT_EQ(record.shortcuts[15].count, 0);
    EXPECT_EQ(previous.shortcuts[15].count, 0);
    EXPECT_EQ(previous.shortcuts[15].events[1].keys[0], 5);

    // An invalid shortcut in both writes nothing and is emptied in both.
    record.shortcuts[15].count = previous.shortcuts[15].count = count;
    EXPECT_TRUE(CompareProtocolData(record, previous).empty());
    EXPECT_EQ(record.shortcuts[15].count, 0);
    EXPECT_EQ(previous.shortcuts[15].count, 0);
    EXPECT_EQ(previous.shortcuts[15].events[1].keys[0], 0);
  }
}

TEST(CompareTest, ChangedMacros) {
  ProtocolData previous{};
  std::memset(previous.macros[1].name, 'x', 30);
  previous.macros[1].name_length = 30;
  ProtocolData record{};
  record.macros[1].name_length = 1;
  record.macros[1].name[0] = 'a';
  FlashWrite write = OnlyWrite(record, previous);
  EXPECT_EQ(write.address, 768 + 384);
  Image expected(33, 0xFF);
  expected[0] = 1;
  expected[1] = 'a';
  expected[31] = 0;
  expected[32] = 0x55;
  EXPECT_EQ(Data(write), expected);
  EXPECT_EQ(previous.macros[1].name_length, 1);
  EXPECT_EQ(previous.macros[1].name[0], 'a');
  EXPECT_EQ(previous.macros[1].name[1], 'x');  // beyond the new length: kept

  // A delay's upper half never reaches the device: no write, and the old record keeps its own.
  record.macros[1].count = previous.macros[1].count = 70;
  record.macros[1].events[69].delay = 0x10000;
  EXPECT_TRUE(CompareProtocolData(record, previous).empty());
  EXPECT_EQ(previous.macros[1].events[69].delay, 0u);
  record.macros[1].events[69].delay = 0x10001;
  EXPECT_EQ(OnlyWrite(record, previous).length, 383);
  EXPECT_EQ(previous.macros[1].events[69].delay, 0x10001u);
}

TEST(CompareTest, AMacroThatFitsNoSlotIsPassedOver) {
  for (const auto& [name_length, count] : {std::pair{31, 2}, {1, 71}, {255, 255}}) {
    ProtocolData previous{};
    previous.macros[0].count = 2;
    ProtocolData record = previous;
    record.report_rate = 9;
    record.macros[0].name_length = static_cast<uint8_t>(name_length);
    record.macros[0].count = static_cast<uint8_t>(count);
    EXPECT_EQ(OnlyWrite(record, previous).address, 0);
    EXPECT_EQ(previous.macros[0].name_length, 0);
    EXPECT_EQ(previous.macros[0].count, 2);

    // The other way round the device is given what fits, whatever it held.
    EXPECT_EQ(OnlyWrite(previous, record).address, 768);
    EXPECT_EQ(record.macros[0].count, 2);
  }
}

// Writing what differs into the old image gives an image of the new record, and the writes come
// in the record's order.
TEST(CompareTest, WritesTurnOneDeviceIntoAnother) {
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

    std::vector<size_t> order;
    for (const Place& place : Places())
      order.push_back(place.address);
    for (size_t k = 0; k < 16; ++k)
      order.push_back(sim::ShortcutAddress(k));
    for (size_t k = 0; k < 16; ++k)
      order.push_back(sim::MacroAddress(k));
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
