// perictl get, set, config and macro, on a virtual mouse that keeps its configuration in a file.
#include <gtest/gtest.h>

#include "tools/perictl_run.h"

namespace perilink {
namespace {

class ConfigCommand : public PerictlTest {
 protected:
  static std::string OnMemory(const std::string& arguments) {
    const bool keyboard = arguments.find("=keyboard") != std::string::npos;
    return std::string(" --virtual-time --virtual-memory DIR/") +
           (keyboard ? "keyboard.img" : "mouse.img");
  }
};

constexpr char kVerified[] = "every write was acknowledged and read back";

// One after another on one device.
TEST_F(ConfigCommand, ReadsWritesSavesLoadsAndCompares) {
  const PerictlStep steps[] = {
      {"config save DIR/old.json", 0, "old.json"},
      {"config save DIR/old.img", 0, "image"},
      {"config diff DIR/old.json DIR/old.img", 0, "no difference"},
      {"config load DIR/old.img", 0, "nothing to write"},
      // In words, each change old -> new.
      {"set dpi=800", 0, "dpi_levels[1].dpi     400 dpi -> 800 dpi\n"},
      {"get dpi --json", 0, "\"value\": 800,\n  \"unit\": \"dpi\",\n  \"text\": \"800 dpi\""},
      {"set report_rate=1000Hz 'dpi_levels[2].color=red' lights=off sleep_after=0x3c", 0,
       "dpi_levels[2].color   #4040c0 -> #ff0000\n"},
      {"get 'dpi_levels[2]'", 0, "dpi_levels[2].color   #ff0000\n"},
      {"set 'color=[9,8,7]'", 0, "#2040c0 -> #090807\n"},
      {"set light_bar.mode=ripple 'buttons[3]=dpi_up'", 0, "wave -> ripple\n"},
      {"get light_bar.mode 'key_functions[3]'", 0, "buttons[3]            dpi_up\n"},
      // In numbers, also those that the description does not know.
      {"set --raw report_rate=7", 0, "report_rate           1 -> 7\n"},
      {"get report_rate", 0, "report_rate           7 (undescribed)\n"},
      {"get --model none report_rate", 0, "report_rate           7\n"},
      {"set --model none report_rate=4 switch7=on 'led_bar=02 10 80 f0 05 06 02'", 0, "7 -> 4\n"},
      {"get 'dpi_levels[1].color[2]' --json", 0, "\"value\": 7"},
      {"set angle_snapping=on", 0, "nothing to write"},
      // Keys.
      {"set 'macros[2].name=Copy' 'macros[2].events=ctrl+c' 'shortcuts[1]=ctrl+alt+del'", 0,
       "shortcuts[1].events   none -> leftcontrol+leftalt+delete\n"},
      {"macro show", 0, "  2: \"Copy\"  leftcontrol+c\n"},
      {"macro show 2 --raw", 0, "press:1:e000 press:1:0600 release:1:0600 release:1:e000\n"},
      {"macro set 15 --name 'a\\x01b' --events 'press:a+10,other:15:0001+65535'", 0, kVerified},
      {"macro set 15 --name c", 0, "macros[15].name       \"a\\x01b\" -> \"c\"\n"},
      {"macro show 15", 0, "15: \"c\"  press:a+10 other:15:0001+65535\n"},
      {"macro set 2 --clear", 0, kVerified},
      {"macro show", 0, ", virtual):\n  15:"},
      {"set 'shortcuts[1]=none'", 0, kVerified},
      {"config diff DIR/old.json", 10, "report_rate           250 Hz -> 500 Hz\n"},
      // A write that is not acknowledged, one that is not kept, one that is cut short.
      {"config load DIR/old.json --virtual-fault=write-silent", 5, "acknowledged 0 of 8 writes"},
      {"config load DIR/old.json --virtual-fault=write-lost", 7, "does not hold the new lights"},
      {"config load DIR/old.json --virtual-fault=silent@1500ms", 5, "does not answer"},
      {"set lights=off sleep_after=60 dpi=800 color=red report_rate=125", 0, kVerified},
      {"config load DIR/old.json --virtual-fault=write-interrupted", 13,
       "written, read back: report_rate, lights, sleep_after; not written: dpi_levels[1].dpi, "},
      {"config load --dry-run DIR/old.json", 0, "dpi_levels[1].dpi     800 dpi -> 400 dpi\n"},
      {"set --raw setting3=3 setting4=4 setting5=5 --virtual-fault=write-torn", 3,
       "acknowledged 2 of 3 writes, not those of setting5; they can't be read back"},
      // What failed its check is neither shown nor saved.
      {"get", 0, "failed their check    setting5\n"},
      {"get setting5", 0, "setting5              unknown\n"},
      {"config show DIR/mouse.img --json", 0, "\"failed_checks\": [\n    \"setting5\""},
      {"config save DIR/torn.json", 0, "failed their check    setting5\n"},
      {"config show DIR/torn.json", 0, "not in the file       setting5\n"},
      {"config save DIR/torn.img", 0, "failed their check    setting5\n"},
      {"set --raw setting3=7", 0, "setting3              3 -> 7\n"},
      {"config load DIR/torn.img", 0, "setting3              7 -> 3\n"},  // not setting5
      {"config load DIR/torn.json", 0, "nothing to write"},
      {"config load DIR/old.json", 0, "setting5              unknown -> 67\n"},
      {"config diff DIR/old.img", 0, "no difference"},
  };
  for (const PerictlStep& step : steps) {
    SCOPED_TRACE(step.arguments);
    const PerictlRun run = Run(step, OnMemory(step.arguments));
    const bool failed = step.exit_code != 0 && step.exit_code != 10;
    EXPECT_EQ(run.ErrorLines(), failed ? 2 : 1) << "no progress in a pipe: " << run.err;
  }
  const Json shown = Run("config show DIR/old.img --json").Document();
  Json saved = Json::parse(folder_.Content("old.json"));
  EXPECT_EQ(saved["model"], "virtual-mouse");
  saved.erase("model");
  EXPECT_EQ(shown["configuration"], saved);
  // Each load kept what it replaced.
  const auto backups = std::filesystem::directory_iterator(folder_.At("state/perilink/backups"));
  EXPECT_EQ(std::distance(begin(backups), end(backups)), 6);
}

TEST_F(ConfigCommand, BadInputIsRefusedAndNothingWritten) {
  Run({"config save DIR/good.json", 0, ""}, OnMemory(""));
  const std::string memory = folder_.Content("mouse.img");
  Json bad = Json::parse(folder_.Content("good.json"));
  bad["setting3"] = 99;
  bad["current_dpi_level"] = 7;
  folder_.Store("bad.json", bad.dump());
  folder_.Store("cut.json", bad.dump().substr(1));
  folder_.Store("random.img", std::string(6960, 'x'));
  folder_.Store("model.json",
                std::string("{\"format\": \"perilink-model\", \"version\": 1, \"modle\": 1}"));
  const PerictlStep steps[] = {
      {"config load DIR/bad.json", 8, "bad.json: current_dpi_level: 7 would be read back as 2"},
      {"config load DIR/cut.json", 8, "neither an image"},
      {"config load DIR/random.img", 8, "most of its check bytes are wrong"},
      {"config load DIR/none.json", 8, "no such file"},
      {"config load DIR/good.json --virtual=keyboard", 7, "no configuration"},
      {"config load DIR/good.json --raw --backup DIR/none/b --virtual=keyboard --force", 8,
       "folder"},
      {"config save DIR/x", 2, "--format"},
      {"config save DIR/none/x.json", 8, "x.json: the file can't be written: no such folder"},
      {"config save DIR/k.json --virtual=keyboard", 7, "--format image"},
      {"set setting3", 2, "'setting3' is not FIELD=VALUE"},
      {"set =4", 2, "a field's name is missing in '=4'"},
      {"set ''", 2, "'' is not FIELD=VALUE"},
      {"set hue=1", 2, "hue: there is no such field"},
      {"set setting4=1 setting3=-1", 2, "setting3: -1 is out of range"},
      {"set dpi=99999", 2, "50 to 6400 dpi is possible"},
      {"set report_rate=7", 2, "'7' is not one of 125 Hz, 250 Hz, 500 Hz, 1000 Hz"},
      {"set color=rde", 2, "did you mean 'red'?"},
      {"set lights=maybe", 2, "neither on nor off"},
      {"set --raw dpi_level_count=99", 2, "dpi_level_count: no device keeps 99; 1 to 8"},
      {"set 'dpi_levels[8].color=red'", 2, "there is no such field"},
      {"set 'macros[3]={\"count\":1}'", 2, "macros[3]"},
      {"macro set 0 --events ctrl+c", 2, "a macro with events needs a name"},
      {"macro set 0 --name x --events press:1:0400", 2, "1 events, 2 to 70"},
      {"macro set 0 --name x --events 'press:a press:16:0400'", 2,
       "event 2, 'press:16:0400': code 16 is out of range, 0 to 15"},
      {"macro set 0 --name x --events 'press:entre release:enter'", 2, "did you mean 'enter'?"},
      {"macro set 0 --name x --events 'a b' --model none", 2, "keys have no names without"},
      {"macro set 0 --name 1234567890123456789012345678901", 2, "31 bytes"},
      {"macro set 0", 2, "--clear"},
      {"model check DIR/model.json", 8, "model.json: there is no member 'modle'"},
  };
  for (const PerictlStep& step : steps) {
    SCOPED_TRACE(step.arguments);
    const PerictlRun run = Run(step, OnMemory(step.arguments));
    EXPECT_LE(run.ErrorLines(), 2) << run.err;
    EXPECT_EQ(folder_.Content("mouse.img"), memory);
  }
}

// A user's description comes before the one that is installed; a broken one is told of, and its
// device works in numbers.
TEST_F(ConfigCommand, DescriptionsOfTheUser) {
  const std::string folder = folder_.At("config/perilink/models");
  const std::string start =
      "{\"format\": \"perilink-model\", \"version\": 1, \"model\": \"mine\", \"name\": \"Mine\", "
      "\"kind\": \"mouse\", \"ids\": [\"1234:abcd\"], \"fields\": {\"report_rate\": {\"name\": "
      "\"pace\", \"unit\": \"ms\"";
  folder_.Store("config/perilink/models/mine.json", start + "}}}");
  Run({"get pace --virtual-time", 0, "mine (1234:abcd, virtual):\n  pace                  2 ms\n"});
  Run({"get report_rate --model virtual-mouse --virtual-time", 0, "500 Hz"});
  folder_.Store("config/perilink/models/mine.json", start + ", \"scale\": 0}}}");
  const PerictlRun run = Run({"get report_rate --virtual-time", 0, "500 Hz"});
  run.ExpectTells("left alone: " + folder + "/mine.json: fields.report_rate.scale: a number other");
}

}  // namespace
}  // namespace perilink
