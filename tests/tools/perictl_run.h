// Runs perictl and holds what it printed, by stream.
#ifndef PERILINK_TESTS_TOOLS_PERICTL_RUN_H_
#define PERILINK_TESTS_TOOLS_PERICTL_RUN_H_

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

namespace perilink {

struct PerictlRun {
  int exit_code = -1;
  std::string out;
  std::string err;

  // The document on standard output; a test failure when it is none.
  nlohmann::json Document() const {
    const auto document = nlohmann::json::parse(out, nullptr, false);
    EXPECT_FALSE(document.is_discarded()) << out;
    return document;
  }
  long ErrorLines() const { return std::count(err.begin(), err.end(), '\n'); }
};

// The arguments are a shell's; what they redirect is not seen.
inline PerictlRun RunPerictl(const std::string& arguments) {
  const std::string errors = testing::TempDir() + "perictl_" + std::to_string(getpid()) + ".err";
  const std::string command = std::string("2>") + errors + " " + PERICTL + " " + arguments;
  PerictlRun run;
  std::FILE* pipe = popen(command.c_str(), "r");
  EXPECT_NE(pipe, nullptr);
  if (pipe == nullptr) return run;
  char buffer[4096];
  for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
    run.out.append(buffer, got);
  }
  const int status = pclose(pipe);
  if (WIFEXITED(status)) run.exit_code = WEXITSTATUS(status);
  std::ifstream file(errors);
  run.err.assign(std::istreambuf_iterator<char>(file), {});
  std::remove(errors.c_str());
  return run;
}

}  // namespace perilink

#endif  // PERILINK_TESTS_TOOLS_PERICTL_RUN_H_
