#include "common/config.h"

#include <gtest/gtest.h>

#include <ctime>

#include "common/config_parts.h"
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

std::string RefusedBecause(const InputJson& document) {
  try {
    ConfigFromJson(document);
  } catch (const ConfigError& error) {
    return error.what();
  }
  return "";
}

// What is not known of a record is not in its file, and what a file lacks is not known.
TEST(ConfigJsonTest, AFileHasWhatItHas) {
  Random random(3);
  const ProtocolData record = RandomRecord(random);
  KnownBytes known = AllBytes();
  for (const ConfigPart& part : ConfigParts()) {
    for (const char* name : {"setting3", "dpi_levels[2].value", "key_functions[4]", "led_bar[6]",
                             "dpi_led[0]", "shortcuts[5]", "macros[9]"}) {
      if (part.name == name) known &= ~PartBytes(part);
    }
  }
  Json document = ConfigToJson(record, known, "some-model");
  document["version"] = kConfigVersion + 1;
  document["wheel"] = {{"tilt", 1}};
  document["dpi_levels"][1]["\x1B[2J"] = 1;
  document["shortcuts"].push_back(nullptr);
  const ConfigFile file = ConfigFromJson(document);
  EXPECT_EQ(file.version, kConfigVersion + 1);
  EXPECT_EQ(file.model, "some-model");
  EXPECT_EQ(file.unknown.names(),
            (std::vector<std::string>{"wheel", "dpi_levels[1].\\x1b[2J", "shortcuts[16]"}));
  EXPECT_EQ(file.missing.names(),
            (std::vector<std::string>{"setting3", "dpi_levels[2].value", "dpi_led[0]", "led_bar[6]",
                                      "key_functions[4]", "shortcuts[5]", "macros[9]"}));
  EXPECT_TRUE((file.known & ~known).none());
  const Json again = ConfigToJson(file.record, file.known, file.model);
  EXPECT_EQ(again, ConfigToJson(record, known, "some-model"));
}

TEST(ConfigJsonTest, LoadsTheFirstVersion) {
  ProtocolData record{};
  record.macros[2] = {2, {'h', 'i'}, 2, {{0, 1, {4, 0}, 10}, {1, 1, {4, 0}, 0}}};
  Json document = ConfigToJson(record);
  document["version"] = 1;
  document["unused18"] = {1, 2};
  document["dpi_levels"][0]["unused"] = 7;
  document["macros"][2]["name_length"] = 2;
  document["macros"][2]["count"] = 2;
  document["macros"][2]["events"].push_back(
      {{"kind", 1}, {"code", 1}, {"keys", {4, 0}}, {"delay", 0}});
  const ConfigFile file = ConfigFromJson(document);
  EXPECT_TRUE(file.unknown.empty()) << file.unknown.Text();
  EXPECT_TRUE(ConfigDifferences(file.record, record).empty());
}

TEST(ConfigJsonTest, LeavesALengthWithoutItsListAlone) {
  const ConfigFile file = LoadConfig(
      R"({"format": "perilink-configuration", "version": 2, "shortcuts": [{"count": 2}]})");
  EXPECT_TRUE(file.known.none());
  EXPECT_EQ(file.record.shortcuts[0].count, 0);
}

TEST(ConfigJsonTest, RefusesWhatNoDeviceHoldsAndNamesTheField) {
  struct Case {
    const char* pointer;
    const char* value;
    const char* expected;
  };
  const Case cases[] = {
      {"/format", "\"other\"", "format: \"perilink-configuration\" is wanted"},
      {"/version", "0", "version: a whole number from 1 is wanted"},
      {"/report_rate", "256", "report_rate: 256 is out of range, 0 to 255 is wanted"},
      {"/report_rate", "1.5", "report_rate: a whole number is wanted"},
      {"/switch12", "2", "switch12: 2 is out of range, 0 to 1 is wanted"},
      {"/setting38", "[1,2]", "setting38: 2 entries, 3 are wanted"},
      {"/dpi_levels/2/color/1", "300", "dpi_levels[2].color[1]: 300 is out of range"},
      {"/shortcuts/0", "[]", "shortcuts[0]: an object is wanted"},
      {"/shortcuts/0/count", "1", "shortcuts[0].count: 1 is out of range, 0 or at least 2"},
      {"/shortcuts/0/count", "2", "shortcuts[0].count: 2, but the list of events is shorter"},
      {"/shortcuts/0/events", "[{}]", "shortcuts[0].events: 1 event; none or at least 2"},
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
  EXPECT_THROW(LoadConfig("{\"format\": "), ConfigError);
  EXPECT_THROW(LoadConfig("[]"), ConfigError);
  std::string twice = ConfigToJson(ProtocolData{}).dump();
  twice.insert(1, "\"switch7\":1,");
  EXPECT_THROW(LoadConfig(twice), ConfigError);
  const std::string deep = std::string(200'000, '[') + std::string(200'000, ']');
  EXPECT_THROW(LoadConfig("{\"report_rate\": " + deep + "}"), ConfigError);
}

// Were its cost not linear, it would be minutes.
TEST(ConfigJsonTest, HostileDocumentsCostLinearTime) {
  std::string text = "{\"format\":\"perilink-configuration\",\"version\":2";
  for (int i = 0; i < 300'000; ++i)
    text += ",\"k" + std::to_string(i) + "\":0";
  const std::clock_t start = std::clock();  // the process's own time: others may be busy
  EXPECT_EQ(LoadConfig(text + "}").unknown.size(), 300'000u);
  EXPECT_LT(std::clock() - start, 20 * CLOCKS_PER_SEC);
}

TEST(ConfigImageTest, SaysWhichFieldsFailTheirCheckAndTakesNoneOfThem) {
  Random random(4);
  ProtocolData record = RandomRecord(random);
  record.dpi_level_count = 8;
  record.current_dpi_level = 1;
  record.shortcuts[4] = {2, {}, {}};
  record.macros[15] = {};
  record.macros[15].count = 2;
  record.macros[15].name_length = 1;
  Image image = BuildImage(record);
  const auto load = [&] {
    return LoadConfig({reinterpret_cast<char*>(image.data()), image.size()});
  };
  EXPECT_TRUE(load().from_image);
  EXPECT_TRUE(Same(load().record, record));
  EXPECT_TRUE(load().failed_checks.empty()) << load().failed_checks.Text();

  for (size_t address : {0u, 24u, 80u, 96u, 163u, 167u, 221u, 6953u})
    image[address] ^= 0x10;
  image[256 + 32 * 4 + 7] ^= 1;
  image[256 + 32 * 5] = 7;
  image[768 + 384 * 15 + 42] ^= 1;
  image[768] = 31;
  EXPECT_EQ(load().failed_checks.names(),
            (std::vector<std::string>{"report_rate", "setting38", "dpi_levels[3].value",
                                      "dpi_levels[6].extension", "dpi_led[2]", "led_bar[0..5]",
                                      "led_bar[6]", "key_functions[0]", "shortcuts[4]",
                                      "shortcuts[5]", "macros[0]", "macros[15]"}));
  const Json saved = ConfigToJson(load().record, load().known);
  EXPECT_FALSE(saved.contains("report_rate"));
  EXPECT_TRUE(saved["macros"][15].is_null());
  EXPECT_THROW(LoadConfig("no configuration"), ConfigError);
  EXPECT_THROW(LoadConfig("{" + std::string(PERILINK_FLASH_IMAGE_SIZE - 1, ' ')), ConfigError);
  image[0] = '{';
  EXPECT_TRUE(load().from_image);
  for (size_t address : {2u, 4u, 6u, 8u, 10u, 169u, 171u, 173u, 175u, 177u, 179u, 181u, 183u, 185u})
    image[address] ^= 0x10;
  EXPECT_THROW(load(), ConfigError) << "most of the settings fail their check";
}

}  // namespace
}  // namespace perilink::tools
