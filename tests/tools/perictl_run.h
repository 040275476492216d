// Runs perictl and holds what it printed, by stream.
#ifndef PERILINK_TESTS_TOOLS_PERICTL_RUN_H_
#define PERILINK_TESTS_TOOLS_PERICTL_RUN_H_

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace perilink {

using Json = nlohmann::json;

struct PerictlRun {
  int exit_code = -1;
  std::string out;
  std::string err;

  // The document on standard output; a test failure when it is none.
  Json Document() const {
    const Json document = Json::parse(out, nullptr, false);
    EXPECT_FALSE(document.is_discarded()) << out;
    return document;
  }
  long ErrorLines() const { return std::count(err.begin(), err.end(), '\n'); }
  void ExpectTells(const std::string& text) const {
    EXPECT_NE((out + err).find(text), std::string::npos) << text << " in\n" << out << err;
  }
};

// Arguments, the exit code that they lead to, and a part of what is printed.
struct PerictlStep {
  const char* arguments;
  int exit_code;
  const char* told;
};

// A test with a folder of its own, for which DIR stands in arguments.
class PerictlTest : public ::testing::Test {
 protected:
  // On a virtual mouse, unless the arguments choose another. They are a shell's; what they redirect
  // is not seen.
  PerictlRun Run(const std::string& arguments) const {
    return RunProgram(std::string(PERICTL) + " --virtual " + arguments);
  }
  PerictlRun RunProgram(std::string arguments) const {
    for (size_t at; (at = arguments.find("DIR")) != std::string::npos;)
      arguments.replace(at, 3, folder_.path().string());
    const std::string command = "export XDG_STATE_HOME=" + folder_.At("state") +
                                " XDG_CONFIG_HOME=" + folder_.At("config") + "; 2>" +
                                folder_.At("err") + " " + arguments;
    PerictlRun run;
    std::FILE* pipe = popen(command.c_str(), "r");
    EXPECT_NE(pipe, nullptr);
    if (pipe == nullptr) return run;
    char buffer[4096];
    for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
      run.out.append(buffer, got);
    const int status = pclose(pipe);
    if (WIFEXITED(status)) run.exit_code = WEXITSTATUS(status);
    run.err = folder_.Content("err");
    return run;
  }
  PerictlRun Run(const PerictlStep& step, const std::string& more = "") const {
    PerictlRun run = Run(step.arguments + more);
    EXPECT_EQ(run.exit_code, step.exit_code) << run.err;
    run.ExpectTells(step.told);
    return run;
  }

  static std::vector<Json> Lines(const std::string& text) {
    std::vector<Json> values;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
      values.push_back(Json::parse(line));
    return values;
  }

  const testing::TemporaryFolder folder_;
};

}  // namespace perilink

#endif  // PERILINK_TESTS_TOOLS_PERICTL_RUN_H_
