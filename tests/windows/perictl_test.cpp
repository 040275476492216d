// perictl.exe, as a person runs it, on the HID devices that Wine presents.
#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

namespace {

struct Outcome {
  int exit_code;
  std::string output;
};

Outcome RunPerictl(const std::string& arguments) {
  std::FILE* pipe = popen(("perictl.exe " + arguments).c_str(), "r");
  EXPECT_NE(pipe, nullptr);
  std::string output;
  char buffer[512];
  while (std::fgets(buffer, sizeof buffer, pipe) != nullptr)
    output += buffer;
  return {pclose(pipe), output};
}

TEST(Perictl, ListsInterfaces) {
  const Outcome outcome = RunPerictl("list --interfaces --json");
  EXPECT_EQ(outcome.exit_code, 0);
  const auto document = nlohmann::json::parse(outcome.output);
  ASSERT_GE(document.at("interfaces").size(), 2u);
  for (const auto& entry : document["interfaces"]) {
    EXPECT_NE(entry.at("path").get<std::string>().find("vid_"), std::string::npos);
  }
}

TEST(Perictl, TellsWhatIsWrongByExitCode) {
  EXPECT_EQ(RunPerictl("info 2>nul").exit_code, 3);
  EXPECT_EQ(RunPerictl("events --for 1 2>nul").exit_code, 3);
  EXPECT_EQ(RunPerictl("info --vid 12 2>nul").exit_code, 2);
  EXPECT_EQ(RunPerictl("--help").exit_code, 0);
}

}  // namespace
