#include <gtest/gtest.h>

#include <map>

#include "perilink/protocol_data.h"
#include "protocol/image.h"
#include "protocol/stored.h"

namespace perilink::testing {
namespace {

// A record between canaries.
struct Guarded {
  explicit Guarded(uint8_t fill) {
    std::memset(before, 0xC5, sizeof(before));
    std::memset(&record, fill, sizeof(record));
    std::memset(after, 0xC5, sizeof(after));
  }
  bool intact() const {
    return std::string_view(before, sizeof(before)) == std::string(sizeof(before), '\xC5') &&
           std::string_view(after, sizeof(after)) == std::string(sizeof(after), '\xC5');
  }

  char before[16];
  ProtocolData record;
  char after[16];
};

void SetChecked(Image& image, size_t address, std::initializer_list<uint8_t> value) {
  std::copy(value.begin(), value.end(), image.begin() + static_cast<ptrdiff_t>(address));
  image[address + value.size()] = Check(&image[address], value.size());
}

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

TEST(ParserTest, AnImageWithoutAValidFieldGivesDefaultsAndKeepsTheRest) {
  for (const uint8_t erased : Image{0xFF, 0x00}) {
    const Image image(PERILINK_FLASH_IMAGE_SIZE, erased);
    Guarded parsed(0xAB);
    ProtocolDataParser(image.data(), &parsed.record);
    EXPECT_TRUE(Same(parsed.record, AllDefaults(0xAB))) << int{erased};
    EXPECT_TRUE(parsed.intact());
  }
}

TEST(ParserTest, ParsesWhatADeviceHolds) {
  Random random(1);
  for (int run = 0; run < 200; ++run) {
    const ProtocolData record = RandomRecord(random);
    ProtocolData parsed{};
    ProtocolDataParser(BuildImage(record).data(), &parsed);
    ASSERT_TRUE(Same(parsed, record)) << run;
  }
}

TEST(ParserTest, IrregularSettingsFollowTheirRules) {
  struct Case {
    size_t address;
    uint8_t value;
    uint8_t level_count;
    size_t offset;
    uint8_t expected;
  };
  const Case cases[] = {{4, 3, 4, 2, 3},      {4, 4, 4, 2, 2},    {4, 1, 1, 2, 2},
                        {4, 0xFF, 4, 2, 2},   {171, 5, 4, 7, 1},  {171, 0, 4, 7, 0},
                        {175, 0x80, 4, 9, 1}, {181, 2, 4, 12, 1}, {231, 7, 4, 45, 7}};
  for (const Case& it : cases) {
    Image image(PERILINK_SETTINGS_BLOCK_SIZE, 0xFF);
    SetChecked(image, 2, {it.level_count});
    SetChecked(image, it.address, {it.value});
    Guarded parsed(0xAB);
    MouseConfigParser(image.data(), &parsed.record);
    EXPECT_EQ(Bytes(parsed.record)[it.offset], it.expected) << it.address << " " << it.value;
    // Nothing but bytes 0 to 45 belongs to the settings block.
    EXPECT_EQ(
        std::count(Bytes(parsed.record) + 46, Bytes(parsed.record) + sizeof(ProtocolData), 0xAB),
        static_cast<ptrdiff_t>(sizeof(ProtocolData) - 46));
  }
  Image image(PERILINK_SETTINGS_BLOCK_SIZE, 0xFF);
  SetChecked(image, 231, {7});
  ++image[232];
  ProtocolData kept{};
  kept.setting45 = 0x33;
  MouseConfigParser(image.data(), &kept);
  EXPECT_EQ(kept.setting45, 0x33);
}

// Any bytes: fields under a right check byte come through, all others are as in an invalid image.
TEST(ParserTest, AnyImageGivesARecord) {
  Random random(2);
  const std::vector<Place> places = Places();
  for (int run = 0; run < 500; ++run) {
    Image image = BuildImage(RandomRecord(random));
    if (run % 4 == 0) Fill(random, image.data(), image.size());
    for (int hits = run % 200; hits > 0; --hits) {
      image[random() % image.size()] = RandomByte(random);
    }
    image.shrink_to_fit();
    Guarded parsed(0xAB);
    ProtocolDataParser(image.data(), &parsed.record);
    ASSERT_TRUE(parsed.intact());

    ProtocolData expected = AllDefaults(0xAB);
    for (const Place& place : places) {
      const uint8_t* value = &image[place.address];
      if (Check(value, place.width) != value[place.width]) continue;
      if (place.offset == 2 && *value >= expected.dpi_level_count) continue;
      uint8_t* target = Bytes(expected) + place.offset;
      std::memcpy(target, value, place.width);
      if (place.offset == 7 || (place.offset >= 9 && place.offset <= 12)) *target = *value != 0;
    }
    ASSERT_EQ(std::memcmp(&parsed.record, &expected, offsetof(ProtocolData, shortcuts)), 0) << run;
    for (const ShortcutKey& shortcut : parsed.record.shortcuts) {
      ASSERT_TRUE(shortcut.count == 0 || (shortcut.count >= 2 && shortcut.count <= 6));
    }
    for (const MacroKey& macro : parsed.record.macros) {
      ASSERT_TRUE(macro.count == 0 || (macro.count >= 2 && macro.count <= 70));
      ASSERT_LE(macro.name_length, 30);
    }
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
