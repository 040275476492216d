// Descriptions of models, and configurations in their words.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "words/vocabulary.h"

namespace perilink::tools {
namespace {

std::string Shipped(const char* name) {
  std::ifstream file(std::string(PERILINK_MODELS "/") + name);
  return {std::istreambuf_iterator<char>(file), {}};
}

// A description with these fields, or other members.
std::string Described(const std::string& fields, const std::string& more = "") {
  return "{\"format\": \"perilink-model\", \"version\": 1, \"model\": \"m\", \"name\": \"M\", "
         "\"kind\": \"mouse\", \"ids\": [\"1234:abcd\"], \"fields\": {" +
         fields + "}" + more + "}";
}

Model Read(const std::string& text) {
  Model model = ParseModel(text);
  RequireUsableNames(model);
  return model;
}

TEST(ModelTest, RefusesWhatMakesNoSenseAndNamesThePlace) {
  const std::pair<std::string, const char*> cases[] = {
      {"", "not JSON"},
      {"[]", "an object is wanted"},
      {"{\"format\": \"perilink-configuration\"}", "format: \"perilink-model\" is wanted"},
      {"{\"format\": \"perilink-model\", \"version\": 2}", "version: only version 1"},
      {Described("\"report_rat\": {}"), "fields.report_rat: there is no such field; did you mean"},
      {Described("\"report_rate\": {\"labl\": \"x\"}"), "no member 'labl' here; did you mean"},
      {Described("\"report_rate\": {\"scale\": 0}"), "fields.report_rate.scale: a number other"},
      {Described("\"report_rate\": {\"min\": 3, \"max\": 2}"), "'min' is above 'max'"},
      {Described("\"report_rate\": {\"bytes\": [1]}"), "fields.report_rate.bytes[0]: a whole"},
      {Described("\"report_rate\": {\"type\": \"color\"}"), "a colour has 3 bytes"},
      {Described("\"report_rate\": {\"type\": \"colour\"}"), "not one of number, switch, color"},
      {Described("\"report_rate\": {\"choices\": {\"a\": 256}}"),
       "choices.a: a whole number, 0 to"},
      {Described("\"report_rate\": {\"choices\": {\"a\": 1, \"b\": 1}}"),
       "'a' stands for the same"},
      {Described("\"led_bar\": {\"copies\": [[1]]}"), "copies[0]: 7 bytes are wanted"},
      {Described("\"led_bar\": {\"parts\": {\"A b\": {}}}"), "'A b' is no name"},
      {Described("\"report_rate\": {\"name\": \"setting3\"}"), "the name 'setting3' is setting3's"},
      {Described("\"report_rate\": {\"name\": \"x\"}, \"setting3\": {\"name\": \"x\"}"),
       "report_r"},
      {Described("\"report_rate\": {\"label\": \"\x1b[2J\"}"), "control"},
      {Described("\"report_rate\": {}", ", \"aliases\": {\"dpi\": \"nothing\"}"), "aliases.dpi"},
      {Described("\"report_rate\": {}", ", \"keys\": {\"16\": \"keyboard\"}"), "keys.16: a code"},
      {Described("\"report_rate\": {}", ", \"ids\": [\"1234:abcd\"]"), "ids: stands twice"},
      {std::string(100'000, ' '), "too long"},
  };
  for (const auto& [text, expected] : cases) {
    try {
      Read(text);
      ADD_FAILURE() << "taken: " << text;
    } catch (const ConfigError& error) {
      EXPECT_NE(std::string(error.what()).find(expected), std::string::npos) << error.what();
    }
  }
}

// Each value of the shipped description, and others: what people read, and write back.
TEST(VocabularyTest, ValuesReadAndWriteAsPeopleSayThem) {
  const Model mouse = Read(Shipped("virtual-mouse.json"));
  EXPECT_TRUE(Read(Shipped("virtual-keyboard.json")).keyboard);
  const Model other = Read(Described(
      "\"setting20\": {\"scale\": -0.25, \"offset\": 10, \"unit\": \"mm\", \"min\": -20}, "
      "\"setting38\": {\"bytes\": [2, 0], \"max\": 1000}, "
      "\"led_bar\": {\"name\": \"bar\", \"parts\": {\"tail\": {\"bytes\": [5, 6]}}}"));
  const struct {
    const Model* model;
    const char* name;
    const char* written;
    const char* text;  // null: refused
    const char* raw;
  } cases[] = {
      {&mouse, "report_rate", "1000Hz", "1000 Hz", "1"},
      {&mouse, "report_rate", "125", "125 Hz", "8"},
      {&mouse, "report_rate", "1001", nullptr, ""},
      {&mouse, "debounce", "9.4 ms", "9.4 ms", "94"},
      {&mouse, "debounce", "0x10", "16 ms", "160"},
      {&mouse, "debounce", "9.45", nullptr, ""},
      {&mouse, "debounce", "-1", nullptr, ""},
      {&mouse, "debounce", "nan", nullptr, ""},
      {&mouse, "lights", "ON", "on", "1"},
      {&mouse, "lights", "2", nullptr, ""},
      {&mouse, "dpi_levels[3].dpi", "800", "800 dpi", "[16,16,0]"},
      {&mouse, "dpi_levels[3].value", "800", "800 dpi", "[16,16,0]"},
      {&mouse, "dpi_levels[3].value", "[16,17,0]", "10 11 00 (undescribed)", "[16,17,0]"},
      {&mouse, "dpi", "800", "800 dpi", "[16,16,0]"},
      {&mouse, "color", "#f80", "#ff8800", "[255,136,0]"},
      {&mouse, "light_bar.color", "navy", "#000080", "[0,0,0,128,0,0,0]"},
      {&mouse, "light_bar.mode", "Wave", "wave", "[2,0,0,0,0,0,0]"},
      {&mouse, "buttons[7]", "dpi_down", "dpi_down", "[2,2,0]"},
      {&mouse, "macros[1].name", "h\xC3\xA9", "\"h\xC3\xA9\"", "\"h\xC3\xA9\""},
      {&other, "setting20", "-2.5 mm", "-2.5 mm", "50"},
      {&other, "setting20", "-21", nullptr, ""},
      {&other, "setting20", "11", nullptr, ""},  // would be below 0
      {&other, "setting38", "1000", "1000", "[3,0,232]"},
      {&other, "bar.tail", "01fe", "01 fe", "[0,0,0,0,0,1,254]"},
      {&other, "bar.tail", "01", nullptr, ""},
      {nullptr, "setting38", "20 40 c0", "20 40 c0", "[32,64,192]"},
      {nullptr, "setting20", "0xffffffff", "4294967295", "4294967295"},
      {nullptr, "switch7", "on", "1", "1"},
      {nullptr, "report_rate", "1000Hz", nullptr, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.name) + "=" + c.written);
    const Vocabulary words(c.model);
    ProtocolData record{};
    if (c.text == nullptr) {
      EXPECT_THROW(words.Assign(record, c.name, c.written), ConfigError);
      EXPECT_TRUE(ConfigDifferences(record, ProtocolData{}).empty());
      continue;
    }
    words.Assign(record, c.name, c.written);
    const Value value = words.Find(c.name, record, AllBytes()).front();
    EXPECT_EQ(value.text, c.text);
    EXPECT_EQ(value.raw.dump(), c.raw);
    if (value.undescribed) continue;
    ProtocolData again{};
    words.Assign(again, value.name, value.text);
    EXPECT_TRUE(ConfigDifferences(record, again).empty()) << "what is shown can be written";
    const auto changes = words.Changes(ProtocolData{}, AllBytes(), record, AllBytes());
    EXPECT_EQ(changes.size(), 1u);
  }
}

}  // namespace
}  // namespace perilink::tools
