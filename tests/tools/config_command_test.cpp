// perictl config and macro, on a virtual mouse that keeps its configuration in a file.
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
      {"config load DIR/old.img", 0, "written               nothing"},
      {"config set report_rate=4 'dpi_levels[1].color=[9,8,7]'", 0,
       "written               report_rate, dpi_levels[1].color\n"},
      {"config get report_rate", 0, "report_rate           4\n"},
      {"config get 'dpi_levels[1].color[2]' --json", 0, "\"value\": 7"},
      {"config set switch7=1", 0, "written               nothing"},
      {"macro set 15 --name 'a\\x01b' --events 'press:1:04ff+10,other:15:0001+65535'", 0,
       kVerified},
      {"macro set 15 --name c", 0, kVerified},
      {"macro set 2 --name 2 --events 'press:0:0000 release:0:0000'", 0, kVerified},
      {"macro show 15", 0, "15: \"c\"  press:1:04ff+10 other:15:0001+65535\n"},
      {"macro set 2 --clear", 0, kVerified},
      {"macro show", 0, "Macros:\n  15:"},
      {"config diff DIR/old.json", 10, "report_rate: 4 -> 2\n"},
      // A write that is not acknowledged, one that is not kept, one that is cut short.
      {"config load DIR/old.json --virtual-fault=write-silent", 5, "acknowledged 0 of 3 writes"},
      {"config load DIR/old.json --virtual-fault=write-lost", 7,
       "does not hold the new dpi_levels"},
      {"config load DIR/old.json --virtual-fault=silent@1500ms", 5, "does not answer"},
      {"config set setting3=3 setting4=4 setting5=5 --virtual-fault=write-torn", 3,
       "acknowledged 2 of 3 writes, not those of setting5; they can't be read back"},
      {"config get", 0, "failed their check    setting5\n"},
      {"config show DIR/mouse.img --json", 0, "\"failed_checks\": [\n    \"setting5\""},
      {"config save DIR/torn.img", 0, "failed their check    setting5\n"},
      {"config set setting3=7", 0, "written               setting3\n"},
      {"config load DIR/torn.img", 0, "written               setting3\n"},  // not setting5
      {"config load DIR/old.json", 0, kVerified},
      {"config diff DIR/old.img", 0, "no difference"},
      {"config get", 0, "key_functions[15]"},
  };
  for (const PerictlStep& step : steps) {
    SCOPED_TRACE(step.arguments);
    const PerictlRun run = Run(step, OnMemory(step.arguments));
    const bool failed = step.exit_code != 0 && step.exit_code != 10;
    EXPECT_EQ(run.ErrorLines(), failed ? 2 : 1) << "no progress in a pipe: " << run.err;
  }
  const Json shown = Run("config show DIR/old.img --json").Document();
  EXPECT_EQ(shown["configuration"], Json::parse(Content("old.json")));
}

TEST_F(ConfigCommand, BadInputIsRefusedAndNothingWritten) {
  Run({"config save DIR/good.json", 0, ""}, OnMemory(""));
  const std::string memory = Content("mouse.img");
  Json bad = Json::parse(Content("good.json"));
  bad["setting3"] = 99;
  bad["current_dpi_level"] = 200;
  Store("bad.json", bad.dump());
  Store("cut.json", bad.dump().substr(1));
  const PerictlStep steps[] = {
      {"config load DIR/bad.json", 8, "bad.json: current_dpi_level: 200 would be read back as 2"},
      {"config load DIR/cut.json", 8, "neither an image"},
      {"config load DIR/none.json", 8, "can't be read"},
      {"config load DIR/good.json --virtual=keyboard", 7, "no configuration"},
      {"config save DIR/x", 2, "--format"},
      {"config save DIR/none/x.json", 8, "can't be written"},
      {"config set setting3", 2, "FIELD=VALUE"},
      {"config set hue=1", 2, "hue: there is no such field"},
      {"config set setting4=1 setting3=-1", 2, "setting3: -1 is out of range"},
      {"config set 'dpi_levels[8].color=[1,2,3]'", 2, "there is no such field"},
      {"config set 'macros[3].name=Hey'", 2, "macros[3].name: a device keeps no more"},
      {"config get 'report_rate[0]'", 2, "there is no such field"},
      {"macro set 0 --events 'press:1:0400 release:1:0400'", 2, "needs a name"},
      {"macro set 0 --name x --events press:1:0400", 2, "1 events, 2 to 70"},
      {"macro set 0 --name x --events 'press:1:0400 press:16:0400'", 2, "event 2, 'press:16:0400'"},
      {"macro set 0 --name 1234567890123456789012345678901", 2, "31 bytes"},
      {"macro set 0", 2, "--clear"},
      {"macro show 16", 2, "SLOT"},
      {"config", 2, "subcommand"},
  };
  for (const PerictlStep& step : steps) {
    SCOPED_TRACE(step.arguments);
    Run(step, OnMemory(step.arguments));
    EXPECT_EQ(Content("mouse.img"), memory);
  }
}

}  // namespace
}  // namespace perilink
