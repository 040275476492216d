// perictl battery --watch and perictl events, on a mouse to which things happen.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tools/perictl_run.h"

namespace perilink {
namespace {

using Json = nlohmann::json;

// What matters of an event, as one word: "battery:80", "battery:80+" while charging, "status:02".
std::string Word(const Json& event) {
  const std::string name = event.at("event");
  if (name == "battery") {
    return name + ":" + event.at("percent").dump() + (event.at("charging") ? "+" : "");
  }
  if (name != "status") return name;
  std::string word = name + ":";
  for (size_t i = 0; i < event.at("flags").size(); ++i) {
    if (event["flags"][i] == 1) word += std::to_string(i);
  }
  return word;
}

std::vector<std::string> Words(const std::string& lines) {
  std::vector<std::string> words;
  std::istringstream stream(lines);
  for (std::string line; std::getline(stream, line);)
    words.push_back(Word(Json::parse(line)));
  return words;
}

TEST(Watch, FollowsTheDevice) {
  const struct {
    const char* arguments;
    std::vector<std::string> words;
  } cases[] = {
      {"battery --watch --count 2 --virtual-fault=event@1s,charging@2s",
       {"battery:80", "battery:80+"}},
      {"events --for 5 --virtual-fault=event@1s,charging@2s",
       {"battery:80", "status:02", "battery:80+"}},
      {"events --for 60 --virtual-fault=absent@1s,event@2s,present@3s,event@4s",
       {"battery:80", "removal", "arrival", "battery:80", "status:02"}},
      // Gone and back before anybody has looked: the server must find it all the same.
      {"events --for 5 --virtual-fault=absent@1s,present@1001ms,event@2s",
       {"battery:80", "battery:80", "status:02"}},
      {"battery --watch --for 12 --virtual-fault=low@5s", {"battery:80", "battery:15"}},
      {"battery --watch --for 30 --virtual-fault=asleep@1s,awake@20s,low@21s",
       {"battery:80", "battery:15"}},
      {"events --count 1 --virtual=keyboard", {"battery:80"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    const PerictlRun run = RunPerictl(std::string(c.arguments) + " --json --virtual-time");
    EXPECT_EQ(run.exit_code, 0) << run.err;
    EXPECT_EQ(Words(run.out), c.words);
  }
}

TEST(Watch, IsReadable) {
  const PerictlRun run = RunPerictl("events --virtual-time --for 3 --virtual-fault=event@1s");
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_NE(run.out.find(" s  battery  80 %, 4020 mV\n"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("flags set: 0 2; data 05 00"), std::string::npos) << run.out;
}

TEST(Watch, OneReading) {
  const PerictlRun run = RunPerictl("battery --json --virtual-fault=charging");
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_EQ(run.Document()["battery"],
            Json({{"percent", 80}, {"charging", true}, {"millivolts", 4020}}));
}

TEST(Watch, WaysToFail) {
  const struct {
    const char* arguments;
    int exit_code;
  } cases[] = {
      {"battery --virtual-fault=absent", 3},
      {"battery --virtual-fault=silent", 5},
      {"battery --watch --virtual-fault=absent", 3},
      {"events --virtual-fault=asleep", 4},
      {"events --for 100 --virtual-time >/dev/full", 1},
      {"battery --for 1", 2},
      {"battery --watch --count 0", 2},
      {"events --for -1", 2},
      {"events --virtual-fault=absent@2", 2},
      {"events --virtual-fault=absent@2s,", 2},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(RunPerictl(c.arguments).exit_code, c.exit_code) << c.arguments;
  }
}

// With real time and threads.
TEST(Watch, EndsCleanlyOnCtrlC) {
  const std::filesystem::path folder = testing::TempDir() + "watch_" + std::to_string(getpid());
  const std::filesystem::path temporary = folder / "tmp";
  std::filesystem::create_directories(temporary);
  setenv("TMPDIR", temporary.c_str(), 1);
  const std::string out = (folder / "out").string();
  const PerictlRun run = RunPerictl("events --json >" + out + " & until [ -s " + out +
                                    " ]; do sleep 0.02; done; kill -INT $!; wait $!");
  unsetenv("TMPDIR");
  EXPECT_EQ(run.exit_code, 0) << run.err;
  EXPECT_TRUE(std::filesystem::is_empty(temporary));  // what the device's records stood in
  std::ifstream file(out);
  EXPECT_EQ(Words({std::istreambuf_iterator<char>(file), {}}),
            (std::vector<std::string>{"battery:80"}));
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace perilink
