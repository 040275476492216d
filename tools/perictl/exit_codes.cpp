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
    {ExitCode::kUpgrade, "upgrade", "the device did not take a firmware upgrade"},
    {ExitCode::kDiffers, "differs", "configurations differ (config diff)"},
    {ExitCode::kDamagedFile, "damaged-file", "an upgrade file is damaged; nothing was sent"},
    {ExitCode::kTimedOut, "timed-out", "the device stopped answering during an upgrade"},
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
    const std::string number = std::to_string(static_cast<int>(row.code));
    text += std::string(3 - number.size(), ' ') + number + "  " + row.meaning + "\n";
  }
  text.pop_back();
  return text;
}

}  // namespace perictl
