// perictl config and macro, on a virtual mouse that keeps its configuration in a file.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tools/perictl_run.h"

namespace perilink {
namespace {

using Json = nlohmann::json;

class ConfigCommand : public testing::Test {
 protected:
  ConfigCommand() { std::filesystem::create_directory(folder_); }
  ~ConfigCommand() override { std::filesystem::remove_all(folder_); }

  // DIR stands for the test's folder.
  PerictlRun Run(std::string arguments) const {
    const bool keyboard = arguments.find("=keyboard") != std::string::npos;
    arguments += " --virtual-time --virtual-memory DIR/";
    arguments += keyboard ? "keyboard.img" : "mouse.img";
    for (size_t at; (at = arguments.find("DIR")) != std::string::npos;)
      arguments.replace(at, 3, folder_);
    return RunPerictl(arguments);
  }
  std::string Content(const std::string& name) const {
    std::ostringstream content;
    content << std::ifstream(folder_ + "/" + name, std::ios::binary).rdbuf();
    return content.str();
  }
  void Store(const std::string& name, const std::string& content) const {
    std::ofstream(folder_ + "/" + name, std::ios::binary) << content;
  }

 private:
  const std::string folder_ = testing::TempDir() + "perictl_config_" + std::to_string(getpid());
};

struct Step {
  const char* arguments;
  int exit_code;
  const char* told;  // a part of what it prints
};

constexpr char kVerified[] = "every write was acknowledged and read back";

// One after another on one device.
TEST_F(ConfigCommand, ReadsWritesSavesLoadsAndCompares) {
  const Step steps[] = {
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
  for (const Step& step : steps) {
    SCOPED_TRACE(step.arguments);
    const PerictlRun run = Run(step.arguments);
    EXPECT_EQ(run.exit_code, step.exit_code) << run.err;
    EXPECT_NE((run.out + run.err).find(step.told), std::string::npos) << run.out << run.err;
    const bool failed = step.exit_code != 0 && step.exit_code != 10;
    EXPECT_EQ(run.ErrorLines(), failed ? 2 : 1) << "no progress in a pipe: " << run.err;
  }
  const Json shown = Run("config show DIR/old.img --json").Document();
  EXPECT_EQ(shown["configuration"], Json::parse(Content("old.json")));
}

TEST_F(ConfigCommand, BadInputIsRefusedAndNothingWritten) {
  ASSERT_EQ(Run("config save DIR/good.json").exit_code, 0);
  const Json good = Json::parse(Content("good.json"));
  const std::string memory = Content("mouse.img");
  const struct {
    const char* pointer;
    Json value;
    const char* told;
  } files[] = {
      {"/version", 2, "version: only version 1"},
      {"/report_rate", 256, "report_rate: 256 is out of range"},
      {"/dpi_levels/3/color/1", "x", "dpi_levels[3].color[1]: a whole number"},
      {"/extra", 1, "extra: there is no such field"},
      {"/current_dpi_level", 200, "current_dpi_level: 200 would be read back as 2"},
  };
  for (const auto& file : files) {
    Json document = good;
    document[Json::json_pointer(file.pointer)] = file.value;
    document["setting3"] = 99;
    Store("bad.json", document.dump());
    const PerictlRun run = Run("config load DIR/bad.json");
    EXPECT_EQ(run.exit_code, 8);
    EXPECT_NE(run.err.find(std::string("bad.json: ") + file.told), std::string::npos) << run.err;
  }
  Store("bad.json", good.dump().substr(1));
  const Step steps[] = {
      {"config load DIR/bad.json", 8, "neither an image"},
      {"config load DIR/none.json", 8, "can't be read"},
      {"config load DIR/good.json --virtual=keyboard", 7, "no configuration"},
      {"config save DIR/x", 2, "--format"},
      {"config save DIR/none/x.json", 8, "can't be written"},
      {"config set setting3", 2, "FIELD=VALUE"},
      {"config set hue=1", 2, "hue: there is no such field"},
      {"config set setting4=1 setting3=-1", 2, "setting3: -1 is out of range"},
      {"config set 'dpi_levels[8].color=[1,2,3]'", 2, "there is no such field"},
      {"config get 'report_rate[0]'", 2, "there is no such field"},
      {"macro set 0 --events 'press:1:0400 release:1:0400'", 2, "needs a name"},
      {"macro set 0 --name x --events press:1:0400", 2, "1 events, 2 to 70"},
      {"macro set 0 --name x --events 'press:1:0400 press:16:0400'", 2, "event 2, 'press:16:0400'"},
      {"macro set 0 --name 1234567890123456789012345678901", 2, "31 bytes"},
      {"macro set 0", 2, "--clear"},
      {"macro show 16", 2, "SLOT"},
      {"config", 2, "subcommand"},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.arguments);
    const PerictlRun run = Run(step.arguments);
    EXPECT_EQ(run.exit_code, step.exit_code);
    EXPECT_NE(run.err.find(step.told), std::string::npos) << run.err;
    EXPECT_EQ(Content("mouse.img"), memory);
  }
}

}  // namespace
}  // namespace perilink
