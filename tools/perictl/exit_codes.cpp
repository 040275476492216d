#include "exit_codes.h"

namespace perictl {
namespace {

constexpr ExitCodeRow kRows[] = {
    {ExitCode::kSuccess, "success", "what was asked is done"},
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
    {ExitCode::kInterrupted, "interrupted", "Ctrl-C ended it before it was through"},
    {ExitCode::kSeveral, "several-devices", "several devices match; choose one"},
    {ExitCode::kDeclined, "declined", "not done without --force, or not wanted"},
};

}  // namespace

const char* ExitCodeName(ExitCode code) {
  for (const ExitCodeRow& row : kRows) {
    if (row.code == code) return row.name;
  }
  return "unknown";
}

std::span<const ExitCodeRow> ExitCodes() {
  return kRows;
}

}  // namespace perictl
