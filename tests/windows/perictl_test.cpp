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
  const Outcome watch = RunPerictl("events --for 0.5");
  EXPECT_EQ(watch.exit_code, 0);
  EXPECT_NE(watch.output.find("absent"), std::string::npos) << watch.output;
  EXPECT_EQ(RunPerictl("info --vid 12 2>nul").exit_code, 2);
  EXPECT_EQ(RunPerictl("--help").exit_code, 0);
}

TEST(Perictl, ReadsFiles) {
  EXPECT_NE(RunPerictl("model list").output.find("virtual-mouse.json"), std::string::npos);
  // A file of one byte more than its header: the digest is that of the letter a.
  std::FILE* const file = std::fopen("perictl_test.upgrade", "wb");
  ASSERT_NE(file, nullptr);
  unsigned char header[8193] = {};
  header[8] = 1;  // payload length
  header[8192] = 'a';
  std::fwrite(header, 1, sizeof header, file);
  std::fclose(file);
  const Outcome outcome = RunPerictl("upgrade inspect perictl_test.upgrade 2>nul");
  std::remove("perictl_test.upgrade");
  EXPECT_EQ(outcome.exit_code, 11);
  EXPECT_NE(outcome.output.find("ca978112ca1bbdcafac231b39a23dc4da786eff8147c4e72b9807785afee48bb"),
            std::string::npos)
      << outcome.output;
}

}  // namespace
