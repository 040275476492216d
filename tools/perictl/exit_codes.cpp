#include "exit_codes.h"

namespace perictl {
namespace {

struct Row {
  ExitCode code;
  const char* name;
  const char* meaning;
};

constexpr Row kRows[] = {
    {ExitCode::kSuccess, "success", "success"},
    {ExitCode::kInternal, "internal", "perictl itself failed"},
    {ExitCode::kUsage, "usage", "the command line makes no sense"},
    {ExitCode::kNoDevice, "no-device", "no such device is plugged in"},
    {ExitCode::kOffline, "offline", "the device is asleep or switched off"},
    {ExitCode::kNoAnswer, "no-answer", "the device does not answer"},
    {ExitCode::kNonsense, "nonsense", "the device answers nonsense"},
    {ExitCode::kRefused, "refused", "the device refused, or kept another setting"},
    {ExitCode::kFile, "file", "a file can't be used"},
    {ExitCode::kUpgrade, "upgrade", "a firmware upgrade did not succeed"},
    {ExitCode::kDiffers, "differs", "configurations differ (config diff)"},
};

}  // namespace

const char* ExitCodeName(ExitCode code) {
  for (const Row& row : kRows) {
    if (row.code == code) return row.name;
  }
  return "unknown";
}

std::string ExitCodeHelp() {
  std::string text = "Exit codes:\n";
  for (const Row& row : kRows) {
    text += "  " + std::to_string(static_cast<int>(row.code)) + "  " + row.meaning + "\n";
  }
  text.pop_back();
  return text;
}

}  // namespace perictl
