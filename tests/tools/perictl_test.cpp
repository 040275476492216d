// What perictl prints, and its exit codes, on the virtual devices.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/perictl_run.h"

namespace perilink {
namespace {

using Perictl = PerictlTest;

TEST_F(Perictl, EveryWayToFailHasItsCodeAndOneLine) {
  const PerictlStep steps[] = {
      {"info --virtual-fault=absent", 3, "is plugged in"},
      {"info --key nowhere", 3, "whose path holds 'nowhere'"},
      {"info --vid 1234 --pid 0001", 3, "with id 1234:0001"},
      {"info --path x", 3, "at path x"},
      {"info --virtual-fault=vanishing", 3, "is gone"},
      {"info --virtual-fault=asleep", 4, "asleep"},
      {"info --virtual-fault=silent", 5, "does not answer"},
      {"demo --virtual-fault=silent", 5, "does not answer"},
      {"info --virtual-fault=nonsense", 6, "nonsense"},
      {"battery --virtual-fault=absent", 3, "is plugged in"},
      {"battery --virtual-fault=silent", 5, "does not answer"},
      {"battery --watch --virtual-fault=absent", 3, "is plugged in"},
      {"events --virtual-fault=asleep", 4, "asleep"},
      {"list --virtual-fault=broken", 2, "--virtual-fault"},
      {"info --vid 12", 2, "four hexadecimal digits"},
      {"info --key a --path b", 2, "excludes"},
      {"battery --for 1", 2, "--watch"},
      {"battery --watch --count 0", 2, "--count"},
      {"events --for -1", 2, "--for"},
      {"events --virtual-fault=absent@2", 2, "--virtual-fault"},
      {"events --virtual-fault=absent@2s,", 2, "--virtual-fault"},
  };
  for (const PerictlStep& step : steps) {
    SCOPED_TRACE(step.arguments);
    // Usage errors come before the line that names the virtual device.
    const PerictlRun run = Run(step);
    EXPECT_EQ(run.ErrorLines(), step.exit_code == 2 ? 1 : 2) << run.err;
    const PerictlRun json = Run(step, " --json");
    if (step.exit_code == 2) continue;
    EXPECT_EQ(json.Document()["error"]["code"], step.exit_code);
  }
  Run({"", 2, "subcommand"});
}

TEST_F(Perictl, WhatAPersonReads) {
  const struct {
    const char* arguments;
    int exit_code;
    std::vector<const char*> parts;
  } cases[] = {
      {"--help", 0, {"  0  success", "  3  no such device", "  9  the device did not take"}},
      {"info >/dev/full", 1, {}},
      {"events --for 100 --virtual-time >/dev/full", 1, {}},
      {"info --virtual=keyboard", 0, {"firmware version"}},
      {"battery --json --virtual-fault=charging", 0, {": 80,", "\"charging\": true", ": 4020"}},
      {"events --virtual-time --for 3 --virtual-fault=event@1s",
       0,
       {" s  battery  80 %, 4020 mV\n", "flags set: 0 2; data 05 00"}},
      {"demo --virtual-time",
       0,
       {"Finding the device", "firmware version      1.02", "address", "80 %", "restored",
        "was 1.02; is 1.03"}},
  };
  for (const auto& c : cases) {
    const PerictlRun run = Run(c.arguments);
    EXPECT_EQ(run.exit_code, c.exit_code) << run.err;
    for (const char* part : c.parts)
      run.ExpectTells(part);
  }
}

TEST_F(Perictl, ListMarksTheCommandInterface) {
  const Json interfaces = Run("list --json").Document()["interfaces"];
  ASSERT_GE(interfaces.size(), 1u);
  int marked = 0;
  for (const Json& entry : interfaces) {
    const std::string path = entry["path"];
    EXPECT_EQ(entry["takes_commands"], path.find("mi_01&col05") != std::string::npos);
    marked += entry["takes_commands"] ? 1 : 0;
  }
  EXPECT_EQ(marked, 1);
  EXPECT_EQ(Run({"list --json --virtual-fault=absent", 0, ""}).Document(),
            Json({{"interfaces", Json::array()}}));
}

TEST_F(Perictl, InfoTellsWhatTheMouseHolds) {
  const Json expected = {{"id", "1234:abcd"},
                         {"version", "1.02"},
                         {"slave_version", "2.03"},
                         {"online", true},
                         {"address", "1a:2b:3c"},
                         {"rssi", 0x30},
                         {"serial_number", "56 4d 30 30 30 30 30 30 30 31"},
                         {"cid_mid", {{"cid", 0x12}, {"mid", 0x34}, {"flag", 0}}},
                         {"device_info", "12 34 01"},
                         {"receiver_colours", "ff 40 10 00 00 00 00 00 00 00"},
                         {"long_range", 0}};
  for (const char* choice : {"", " --vid 1234 --pid ABCD", " --key MI_01"}) {
    const Json info = Run({"info --json", 0, ""}, choice).Document();
    Json told = info;
    told.update(expected);
    EXPECT_EQ(told, info) << choice;
    EXPECT_EQ(info["battery"]["percent"], 80);
    EXPECT_TRUE(info["dpi_level"].is_number());
  }
}

TEST_F(Perictl, DemoSetsReadsAndRestores) {
  const Json demo = Run({"demo --json --virtual-time", 0, ""}).Document();
  for (const char* road : {"by_ids", "by_key", "by_interface", "by_default"}) {
    EXPECT_GE(demo["find"][road].size(), 1u) << road;
  }
  EXPECT_EQ(demo["device"]["version"], "1.02");
  const std::pair<const char*, const char*> settings[] = {
      {"receiver_colours", "ff 40 10 00 00 00 00 00 00 00"},
      {"bar_mode", "01 02 10 20 30 05 01"},
      {"indicator_led", "01 80 03"},
      {"long_range", "00"}};
  for (const auto& [key, before] : settings) {
    const Json& told = demo["receiver"][key];
    EXPECT_EQ(told["before"], before);
    EXPECT_EQ(told["read"], told["set"]) << key;
    EXPECT_NE(told["read"], told["before"]) << key;
  }
  const Json& changed = demo["configuration"]["changed"];
  EXPECT_EQ(demo["configuration"]["read"]["bytes"], 6960);
  EXPECT_EQ(changed["read"], changed["set"]);
  EXPECT_NE(changed["read"], changed["before"]);
  EXPECT_EQ(changed["restored"], changed["before"]);
  std::vector<std::string> events;
  for (const Json& event : demo["battery"]["events"])
    events.push_back(event["event"]);
  EXPECT_EQ(events, (std::vector<std::string>{"battery", "status", "removal", "arrival", "battery",
                                              "battery"}));
}

TEST_F(Perictl, DemoUpgradesAKeyboardToo) {
  const PerictlRun run = Run({"demo --json --virtual-time --virtual=keyboard", 0, ""});
  const Json upgrade = run.Document()["upgrade"];
  EXPECT_EQ(upgrade["version"], Json({{"before", "1.02"}, {"after", "1.03"}}));
  EXPECT_EQ(upgrade["events"].back()["event"], "success");
}

}  // namespace
}  // namespace perilink
