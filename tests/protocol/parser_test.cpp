#include <gtest/gtest.h>

#include <map>

#include "perilink/protocol_data.h"
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
    ProtocolData record;
    std::memcpy(&record, bytes.data(), sizeof(record));
    for (const ShortcutKey& shortcut : record.shortcuts) {
      ASSERT_TRUE(shortcut.count == 0 || (shortcut.count >= 2 && shortcut.count <= 6));
    }
    for (const MacroKey& macro : record.macros) {
      ASSERT_TRUE(macro.count == 0 || (macro.count >= 2 && macro.count <= 70));
      ASSERT_LE(macro.name_length, 30);
    }

    // The settings block alone: nothing behind them belongs to it.
    image.resize(PERILINK_SETTINGS_BLOCK_SIZE);
    image.shrink_to_fit();
    const size_t end = offsetof(ProtocolData, dpi_levels);
    std::memset(Bytes(expected) + end, kCanary, sizeof(expected) - end);
    ASSERT_EQ(std::memcmp(Parsed(MouseConfigParser, image).data(), &expected, sizeof(expected)), 0);
  }
}

TEST(StoredTest, RepliesKeepTheRecordCurrent) {
  StoredProtocolData& stored = StoredProtocolData::Instance();
  const auto now = [&] { return stored.With([](const ProtocolData& record) { return record; }); };
  EXPECT_TRUE(Same(now(), ProtocolData{}));
  EXPECT_FALSE(stored.parsed());

  const std::map<uint16_t, Image> replies = {
      {0, {4, 0x51, 9, 0x4C, 1, 0x54, 0, 0x55, 0, 0x55}},  // only the first field is meant
      {2, {9, 0x4C, 0, 0x55, 0, 0x55, 0, 0x55, 0, 0x55}},
      {4, {7, 0x4E, 9, 0x4C, 0, 0x55, 0, 0x55, 0, 0x55}},
      {76, {5, 0x50, 6, 0x00, 7, 0x4E, 8, 0x4D, 0, 0}},  // the second pair is wrong
      {160, {1, 2, 3, 4, 5, 6, 0x40, 9, 0x4C, 0}}};
  for (const auto& [address, data] : replies) {
    stored.StoreReply(address, std::span<const uint8_t, 10>(data));
  }
  ProtocolData expected{};
  expected.report_rate = 4;
  expected.current_dpi_level = 7;
  expected.dpi_led = {{5, 0, 7, 8}};
  expected.led_bar = {{1, 2, 3, 4, 5, 6, 9}};
  EXPECT_TRUE(Same(now(), expected));

  Random random(3);
  const ProtocolData record = RandomRecord(random);
  SetDllProtocolData(&record);
  EXPECT_TRUE(Same(now(), record));
  EXPECT_FALSE(stored.parsed());
  stored.Parse(BuildImage(expected).data());
  EXPECT_TRUE(stored.parsed());
}

}  // namespace
}  // namespace perilink::testing
