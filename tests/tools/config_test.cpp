#include "common/config.h"

#include <gtest/gtest.h>

#include "common/escaped_text.h"
#include "protocol/image.h"

namespace perilink::tools {
namespace {

using perilink::testing::BuildImage;
using perilink::testing::Fill;
using perilink::testing::Image;
using perilink::testing::Random;
using perilink::testing::RandomRecord;
using perilink::testing::Same;

std::string RefusedBecause(const Json& document) {
  try {
    ConfigFromJson(document);
  } catch (const ConfigError& error) {
    return error.what();
  }
  return "";
}

TEST(ConfigJsonTest, RoundTripsEveryByte) {
  Random random(1);
  for (int run = 0; run < 8; ++run) {
    ProtocolData record = RandomRecord(random);
    Fill(random, record.unused18, 2);
    Fill(random, record.macros[run % 16].name, 30);
    record.shortcuts[2].unused[1] = 7;
    record.shortcuts[5].events[5].kind = 2;
    record.macros[15].events[69].delay = 0xFFFF;
    const std::string text = ConfigToJson(record).dump(run % 2 == 0 ? 2 : -1);
    ASSERT_TRUE(Same(ConfigFromText(text), record)) << text;
    EXPECT_TRUE(Same(LoadConfig(text).record, record));
  }
}

TEST(ConfigJsonTest, RefusesEveryMissingFieldAndNamesIt) {
  const Json good = ConfigToJson(ProtocolData{});
  ASSERT_EQ(RefusedBecause(good), "");
  for (const auto& item : good.items()) {
    Json document = good;
    document.erase(item.key());
    EXPECT_EQ(RefusedBecause(document).rfind(item.key() + ":", 0), 0u) << item.key();
  }
  Json document = good;
  document["macros"][3]["events"].push_back({{"kind", 0}, {"code", 0}, {"keys", {0, 0}}});
  EXPECT_EQ(RefusedBecause(document), "macros[3].events[0].delay: the field is missing");
}

TEST(ConfigJsonTest, RefusesWhatNoDeviceHoldsAndNamesTheField) {
  struct Case {
    const char* pointer;
    const char* value;
    const char* expected;
  };
  const Case cases[] = {
      {"/format", "\"other\"", "format: \"perilink-configuration\" is wanted"},
      {"/version", "2", "version: only version 1 is understood"},
      {"/report_rate", "256", "report_rate: 256 is out of range, 0 to 255 is wanted"},
      {"/report_rate", "1.5", "report_rate: a whole number is wanted"},
      {"/switch12", "2", "switch12: 2 is out of range, 0 to 1 is wanted"},
      {"/setting38", "[1,2]", "setting38: 2 entries, 3 are wanted"},
      {"/dpi_levels/2/color/1", "300", "dpi_levels[2].color[1]: 300 is out of range"},
      {"/dpi_levels/2/hue", "1", "dpi_levels[2].hue: there is no such field"},
      {"/shortcuts/0", "[]", "shortcuts[0]: an object is wanted"},
      {"/shortcuts/0/count", "1", "shortcuts[0].count: 1 is out of range, 0 or at least 2"},
      {"/shortcuts/0/count", "2", "shortcuts[0].events: 0 entries, 2 to 6 are wanted"},
      {"/macros/9/name_length", "31", "macros[9].name_length: 31 is out of range, 0 to 30"},
      {"/macros/9/name", "\"1234567890123456789012345678901\"",
       "macros[9].name: 31 bytes, at most 30 fit"},
      {"/macros/9/name", "\"a\\\\b\"", "macros[9].name: a backslash must begin"},
      {"/macros/9/name", "5", "macros[9].name: a text is wanted"},
  };
  for (const Case& it : cases) {
    Json document = ConfigToJson(ProtocolData{});
    document[Json::json_pointer(it.pointer)] = Json::parse(it.value);
    EXPECT_EQ(RefusedBecause(document).rfind(it.expected, 0), 0u) << it.expected << "\n"
                                                                  << RefusedBecause(document);
  }
  EXPECT_THROW(ConfigFromText("{\"format\": "), ConfigError);
  EXPECT_THROW(ConfigFromText("[]"), ConfigError);
  std::string twice = ConfigToJson(ProtocolData{}).dump();
  twice.insert(1, "\"switch7\":1,");
  EXPECT_THROW(ConfigFromText(twice), ConfigError);
}

// A document may come from anywhere: nothing in it steers a terminal or fills the stack.
TEST(ConfigJsonTest, RefusesInALineOfPrintableText) {
  Json document = ConfigToJson(ProtocolData{});
  document["dpi_levels"][0]["\x1B[2J\n\xC2\x85"] = 1;
  EXPECT_EQ(RefusedBecause(document),
            "dpi_levels[0].\\x1b[2J\\x0a\\xc2\\x85: there is no such field");
  const std::string deep = std::string(200'000, '[') + std::string(200'000, ']');
  EXPECT_THROW(ConfigFromText("{\"report_rate\": " + deep + "}"), ConfigError);
  EXPECT_THROW(ConfigValueFromText(deep), ConfigError);
}

TEST(ConfigJsonTest, SingleFields) {
  ProtocolData record{};
  SetConfigField(record, "dpi_levels[2].color[1]", 7);
  SetConfigField(record, "led_bar", {1, 2, 3, 4, 5, 6, 7});
  SetConfigField(record, "macros[1].name", "h\xC3\xA9");
  EXPECT_EQ(record.dpi_levels[2].color.bytes[1], 7);
  EXPECT_EQ(record.led_bar.bytes[6], 7);
  EXPECT_EQ(record.macros[1].name[2], 0xA9);
  EXPECT_EQ(GetConfigField(record, "dpi_levels[2].color"), Json({0, 7, 0}));
  const ProtocolData before = record;
  for (const char* path : {"", "hue", "dpi_levels[8]", "dpi_levels[x]", "format", "/report_rate"}) {
    EXPECT_THROW(GetConfigField(record, path), ConfigError) << path;
    EXPECT_THROW(SetConfigField(record, path, 1), ConfigError) << path;
  }
  EXPECT_THROW(SetConfigField(record, "switch7", 2), ConfigError);
  EXPECT_TRUE(Same(record, before));
}

TEST(EscapedTextTest, AnyBytesComeBack) {
  EXPECT_EQ(EscapeText(Image{'a', '\\', 0x00, 0xFF, 0xC3, 0xA9}), "a\\\\\\x00\\xff\xC3\xA9");
  // Overlong, a surrogate, a cut character, a control character.
  EXPECT_EQ(EscapeText(Image{0xC0, 0x80}), "\\xc0\\x80");
  EXPECT_EQ(EscapeText(Image{0xED, 0xA0, 0x80}), "\\xed\\xa0\\x80");
  EXPECT_EQ(EscapeText(Image{0xE2, 0x82}), "\\xe2\\x82");
  EXPECT_EQ(EscapeText(Image{0xC2, 0x85}), "\\xc2\\x85");
  Random random(2);
  for (int run = 0; run < 2000; ++run) {
    Image bytes(random() % 31);
    Fill(random, bytes.data(), bytes.size());
    const std::string text = EscapeText(bytes);
    EXPECT_EQ(UnescapeText(text), bytes) << text;
    EXPECT_NO_THROW(Json(text).dump());
  }
  for (const char* text : {"\\", "\\x", "\\x1", "\\x1g", "\\xFF", "\\n"}) {
    EXPECT_EQ(UnescapeText(text), std::nullopt) << text;
  }
}

TEST(ConfigDifferencesTest, NamesTheFieldsThatDiffer) {
  ProtocolData before{};
  before.shortcuts[1] = {2, {}, {{1, 0, {5, 0}, 0}}};
  ProtocolData after = before;
  EXPECT_TRUE(ConfigDifferences(before, after).empty());
  after.unused18[0] ^= 1;
  after.macros[0].events[69].code = 1;  // not counted
  after.setting20 = 1;
  after.dpi_levels[3].color.bytes[2] ^= 1;
  after.key_functions[15].bytes[0] ^= 1;
  after.shortcuts[1].events[0].kind = 0;
  std::vector<std::string> fields;
  for (const Difference& it : ConfigDifferences(before, after)) {
    EXPECT_EQ(it.before, GetConfigField(before, it.field));
    EXPECT_EQ(it.after, GetConfigField(after, it.field));
    fields.push_back(it.field);
  }
  EXPECT_EQ(fields, (std::vector<std::string>{"setting20", "dpi_levels[3].color",
                                              "key_functions[15]", "shortcuts[1].events[0].kind"}));
}

TEST(ConfigImageTest, SaysWhichFieldsFailTheirCheck) {
  Random random(4);
  ProtocolData record = RandomRecord(random);
  record.shortcuts[4] = {2, {}, {}};
  record.macros[15] = {};
  record.macros[15].count = 2;
  Image image = BuildImage(record);
  const auto load = [&] {
    return LoadConfig({reinterpret_cast<char*>(image.data()), image.size()});
  };
  EXPECT_TRUE(load().from_image);
  EXPECT_TRUE(Same(load().record, record));
  EXPECT_EQ(load().failed_checks, std::vector<std::string>{});

  for (size_t address : {0u, 24u, 80u, 96u, 163u, 167u, 221u, 6953u})
    image[address] ^= 0x10;
  image[256 + 32 * 4 + 7] ^= 1;
  image[256 + 32 * 5] = 7;
  image[768 + 384 * 15 + 42] ^= 1;
  image[768] = 31;
  EXPECT_EQ(load().failed_checks,
            (std::vector<std::string>{"report_rate", "setting38", "dpi_levels[3].value",
                                      "dpi_levels[6].extension", "dpi_led[2]", "led_bar[0..5]",
                                      "led_bar[6]", "key_functions[0]", "shortcuts[4]",
                                      "shortcuts[5]", "macros[0].name", "macros[15].events"}));
  EXPECT_THROW(LoadConfig("no configuration"), ConfigError);
  EXPECT_THROW(LoadConfig("{" + std::string(PERILINK_FLASH_IMAGE_SIZE - 1, ' ')), ConfigError);
  image[0] = '{';
  EXPECT_TRUE(load().from_image);
}

TEST(ConfigTextTest, LeavesEmptySlotsOut) {
  ProtocolData record{};
  record.setting20 = 70000;
  record.macros[2] = {2, {'h', 'i'}, 2, {{}, {1, 2, {0x1A, 0}, 300}}};
  const std::string text = ConfigText(record);
  for (const char* line : {"setting20           70000\n", "macros[2]           \"hi\", 2 events\n",
                           "dpi_levels[7]       value 00 00 00, color 00 00 00, extension1 0, ",
                           "  events[1]         kind 1, code 2, keys 1a 00, delay 300\n"})
    EXPECT_NE(text.find(line), std::string::npos) << text;
  EXPECT_EQ(text.find("macros[1]"), std::string::npos);
  EXPECT_EQ(text.find("unused"), std::string::npos);
}

}  // namespace
}  // namespace perilink::tools
