// What perictl prints, and its exit codes, on the virtual devices, and on those to which things
// happen. What its pages show is not here: the documents' commands are run, too.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "tools/perictl_run.h"

namespace perilink {
namespace {

using Perictl = PerictlTest;

// Usage errors come before the line that names the virtual device, and say what would be right.
TEST_F(Perictl, EveryWayToFailHasItsCodeAndOneLine) {
  const PerictlStep steps[] = {
      {"info --virtual-fault=absent", 3, "is plugged in"},
      {"info --key nowhere", 3, "whose path holds 'nowhere'"},
      {"info --vid 1234 --pid 0001", 3, "with id 1234:0001"},
      {"info --path x", 3, "at path x"},
      {"info -d 2", 3, "called '2'"},
      {"info -d virtual-mose", 3, "did you mean 'virtual-mouse'?"},
      {"info --virtual-fault=vanishing", 3, "is gone"},
      {"info --virtual-fault=asleep", 4, "asleep"},
      {"info --virtual-fault=silent", 5, "does not answer"},
      {"info --virtual-fault=nonsense", 6, "nonsense"},
      {"get --virtual=keyboard", 7, "holds no configuration"},
      {"set dpi=800 --virtual=mouse,mouse", 14, "--device virtual-mouse@1a2b3c4d"},
      {"config load /nowhere/x.json", 8, "no such file"},
      {"info --model /nowhere/x.json", 8, "no such file"},
      {"", 2, "a command is missing after 'perictl': list, info"},
      {"lsit", 2, "there is no command 'lsit'; did you mean 'list'?"},
      {"config sav x", 2, "did you mean 'save'? ('perictl config --help' helps)"},
      {"config", 2, "a command is missing after 'perictl config': get"},
      {"list extra", 2, "'extra' is too much: perictl list takes only options"},
      {"info --jsn", 2, "there is no option '--jsn'; did you mean '--json'?"},
      {"config load", 2, "FILE is missing after 'perictl config load'"},
      {"upgrade run x --log", 2, "--log needs a value: FILE"},
      {"list --virtual-fault=broken", 2, "'broken' is neither NAME nor NAME@TIME"},
      {"events --virtual-fault=absent@2", 2, "as in absent@2s"},
      {"list --virtual=mose", 2, "did you mean 'mouse'?"},
      {"info --vid 12", 2, "'12' is not four hexadecimal digits, as in --vid 1a2b"},
      {"info --pid 1234", 2, "requires --vid"},
      {"battery --for 1", 2, "requires --watch"},
      {"battery --watch --count 0", 2, "'0' is not a whole number from 1, as in --count 10"},
      {"events --for -1", 2, "'-1' is not a number of seconds above 0"},
      {"upgrade run x --timeout 5", 2, "from 1000 to 3600000"},
      {"macro show 16", 2, "'16' is not a whole number from 0 to 15"},
      {"config save x --format yaml", 2, "'yaml' is not one of json, image"},
  };
  for (const PerictlStep& step : steps) {
    SCOPED_TRACE(step.arguments);
    const bool usage = step.exit_code == 2;
    const PerictlRun run = Run(step, usage ? "" : " --virtual-time");
    EXPECT_EQ(run.ErrorLines(), usage ? 1 : 2) << run.err;
    EXPECT_LT(run.err.size(), 400u) << run.err;
    if (usage) continue;
    EXPECT_EQ(Run(step, " --virtual-time --json").Document()["error"]["code"], step.exit_code);
  }
}

TEST_F(Perictl, WhatAPersonReads) {
  const struct {
    const char* arguments;
    int exit_code;
    std::vector<const char*> parts;
  } cases[] = {
      {"--help", 0, {"  0  success", " 15  declined", "--virtual[=MODEL]", "--device NUMBER|NAME"}},
      {"config set --help", 0, {"FIELD=VALUE", "--dry-run", "--json", "--vid HEX4", "dpi=800"}},
      {"help upgrade run", 0, {"perictl upgrade run [OPTIONS] FILE", "--force"}},
      {"--version", 0, {"perictl 0."}},
      {"--help >/dev/full", 1, {"can't be written"}},
      {"events --for 100 >/dev/full", 1, {"can't be written"}},
      {"info --virtual=keyboard", 0, {"virtual-keyboard (1234:abce, virtual)", "firmware version"}},
      {"info", 0, {"receiver.color        #ff4010\n", "long-range mode       off\n"}},
      {"info --raw", 0, {"receiver colours      ff 40 10 00", "indicator LED         01 80 03\n"}},
      {"info --model none", 0, {"1234-abcd (1234:abcd, virtual)", "bar mode              01 02"}},
      {"list --vid 9999", 0, {"No device of vendor 9999 is plugged in."}},
      {"list --virtual=mouse,mouse,keyboard --pid abce --vid 1234", 0, {"3  virtual-keyboard"}},
      {"info --all --virtual=mouse,keyboard", 0, {"Device 1:\n", "Device 2:\n"}},
      {"info -d virtual-keyboard --virtual=mouse,keyboard", 0, {"1234:abce"}},
      {"list --virtual-fault=asleep", 0, {"asleep", "  -"}},
      {"list --interfaces", 0, {"1 virtual-mouse (1234:abcd, virtual)\n", "`- * \\\\?\\hid#vid"}},
      {"battery --json --virtual-fault=charging", 0, {": 80,", "\"charging\": true", ": 4020"}},
      {"events --for 3 --virtual-fault=event@1s",
       0,
       {" s  battery  80 %, 4020 mV\n", "flags set: 0 2; data 05 00"}},
      {"demo --virtual=keyboard", 0, {"firmware version      1.02", "was 1.02; is 1.03"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    const PerictlRun run = Run(std::string("--virtual-time ") + c.arguments);
    EXPECT_EQ(run.exit_code, c.exit_code) << run.err;
    EXPECT_EQ((run.out + run.err).find('\033'), std::string::npos) << "colours in a pipe";
    for (const char* part : c.parts)
      run.ExpectTells(part);
  }
}

// Without --virtual it speaks to the machine's devices.
TEST_F(Perictl, VirtualDevicesAreNeverThereByDefault) {
  EXPECT_EQ(RunProgram(PERICTL " list --vid 1234 --pid abcd --json").Document()["devices"],
            Json::array());
  EXPECT_EQ(RunProgram(PERICTL " info --vid 1234 --pid abcd").exit_code, 3);
}

// A device is the same object wherever it is named, and however it is chosen.
TEST_F(Perictl, DocumentsNameTheDevice) {
  const Json listed = Run({"list --json", 0, ""}).Document()["devices"][0];
  EXPECT_EQ(listed["virtual"], true);
  EXPECT_EQ(listed["link"], "on line");
  for (const char* command :
       {"battery", "get", "macro show", "get report_rate", "set report_rate=500", "info --all",
        "info --vid 1234 --pid ABCD", "info --key MI_01", "info -d 1"}) {
    Json document = Run({command, 0, ""}, " --json").Document();
    if (document.contains("devices")) document = document["devices"][0];
    Json told = listed;
    told.update(document["device"]);
    EXPECT_EQ(told, listed) << command;
  }
  const Json listing = Run({"list --interfaces --json", 0, ""}).Document();
  int marked = 0;
  for (const Json& entry : listing["interfaces"]) {
    marked += entry["takes_commands"] ? 1 : 0;
    EXPECT_EQ(entry["device"], listed["name"]);
  }
  EXPECT_EQ(marked, 1);
}

TEST_F(Perictl, InfoTellsWhatTheMouseHolds) {
  const Json info = Run({"info --json", 0, ""}).Document();
  Json told = info;
  told.update({{"version", "1.02"},
               {"slave_version", "2.03"},
               {"address", "1a:2b:3c"},
               {"cid_mid", {{"cid", 0x12}, {"mid", 0x34}, {"flag", 0}}},
               {"battery", {{"percent", 80}, {"charging", false}, {"millivolts", 4020}}}});
  EXPECT_EQ(told, info);
  EXPECT_EQ(info["rssi"]["raw"], 0x30);
  EXPECT_EQ(info["receiver_colours"]["words"][0]["value"], "#ff4010");
  EXPECT_EQ(info["serial_number"]["text"], "VM00000001");
}

// ---- Watches ------------------------------------------------------------------------------------

using Watch = PerictlTest;

// Of each line the event and what matters of it, without time and path.
std::string Told(const std::string& lines) {
  const std::regex line(R"( +[\d.]+ s  (\w+) +(\d+ %(?:, charging)?|flags set: [\d ]+)?.*\n)");
  return std::regex_replace(lines, line, "$1 $2|");
}

TEST_F(Watch, FollowsTheDevice) {
  const std::pair<const char*, const char*> cases[] = {
      {"battery --watch --count 2 --virtual-fault=event@1s,charging@2s",
       "battery 80 %|battery 80 %, charging|"},
      {"events --for 5 --virtual-fault=event@1s,charging@2s",
       "battery 80 %|status flags set: 0 2|battery 80 %, charging|"},
      {"events --for 60 --virtual-fault=absent@1s,event@2s,present@3s,event@4s",
       "battery 80 %|removal |arrival |battery 80 %|status flags set: 0 2|"},
      // Gone and back before anybody has looked: the server must find it all the same.
      {"events --for 5 --virtual-fault=absent@1s,present@1001ms,event@2s",
       "battery 80 %|battery 80 %|status flags set: 0 2|"},
      {"battery --watch --for 12 --virtual-fault=low@5s", "battery 80 %|battery 15 %|"},
      {"battery --watch --for 30 --virtual-fault=asleep@1s,awake@20s,low@21s",
       "battery 80 %|asleep |awake |battery 80 %|battery 15 %|"},
      // What it begins with need not be there, or awake, or answer.
      {"events --for 9 --virtual-fault=absent,present@3s", "absent |arrival |battery 80 %|"},
      {"battery --watch --count 1 --virtual-fault=asleep,awake@5s", "asleep |battery 80 %|"},
      {"events --count 1 --virtual-fault=silent,healed@5s", "silent |awake |battery 80 %|"},
      {"events --count 1 --virtual=keyboard", "battery 80 %|"},
  };
  for (const auto& [arguments, told] : cases)
    EXPECT_EQ(Told(Run({arguments, 0, ""}, " --virtual-time").out), told) << arguments;
}

// With real time and threads.
TEST_F(Watch, EndsCleanlyOnCtrlC) {
  const std::string temporary = folder_.At("tmp");
  std::filesystem::create_directory(temporary);
  setenv("TMPDIR", temporary.c_str(), 1);
  const PerictlRun run = Run(
      "events --json >DIR/out & until [ -s DIR/out ]; do sleep 0.02; done; kill -INT $!; wait $!");
  unsetenv("TMPDIR");
  EXPECT_EQ(run.exit_code, 0) << run.err;
  EXPECT_TRUE(std::filesystem::is_empty(temporary));  // what the device's records stood in
  const std::vector<Json> lines = Lines(folder_.Content("out"));
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0]["event"], "battery");
  EXPECT_EQ(lines[0]["percent"], 80);
}

}  // namespace
}  // namespace perilink
