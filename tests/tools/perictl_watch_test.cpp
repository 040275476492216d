// perictl battery --watch and perictl events, on a mouse to which things happen.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tools/perictl_run.h"

namespace perilink {
namespace {

using Watch = PerictlTest;

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

std::vector<std::string> Words(const std::vector<Json>& events) {
  std::vector<std::string> words;
  for (const Json& event : events)
    words.push_back(Word(event));
  return words;
}

TEST_F(Watch, FollowsTheDevice) {
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
       {"battery:80", "asleep", "awake", "battery:80", "battery:15"}},
      // What it begins with need not be there, or awake, or answer.
      {"events --for 9 --virtual-fault=absent,present@3s", {"absent", "arrival", "battery:80"}},
      {"battery --watch --count 1 --virtual-fault=asleep,awake@5s", {"asleep", "battery:80"}},
      {"events --count 1 --virtual-fault=silent,healed@5s", {"silent", "awake", "battery:80"}},
      {"events --count 1 --virtual=keyboard", {"battery:80"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    const PerictlRun run = Run(std::string(c.arguments) + " --json --virtual-time");
    EXPECT_EQ(run.exit_code, 0) << run.err;
    EXPECT_EQ(Words(Lines(run.out)), c.words);
  }
}

// With real time and threads.
TEST_F(Watch, EndsCleanlyOnCtrlC) {
  const std::string temporary = folder_ + "/tmp";
  std::filesystem::create_directory(temporary);
  setenv("TMPDIR", temporary.c_str(), 1);
  const PerictlRun run = Run(
      "events --json >DIR/out & until [ -s DIR/out ]; do sleep 0.02; done; kill -INT $!; wait $!");
  unsetenv("TMPDIR");
  EXPECT_EQ(run.exit_code, 0) << run.err;
  EXPECT_TRUE(std::filesystem::is_empty(temporary));  // what the device's records stood in
  EXPECT_EQ(Words(Lines(Content("out"))), (std::vector<std::string>{"battery:80"}));
}

}  // namespace
}  // namespace perilink
