#include "firmware/upgrade_words.h"

#include "perilink/protocol.h"

namespace perictl {
namespace {

constexpr char kAgain[] = "; start the upgrade again, the device is found in boot mode too";

std::string Counts(const UpgradeEvent& event) {
  return std::to_string(event.arg1) + " input and " + std::to_string(event.arg2) +
         " output interfaces";
}

std::string WrongInterfaces(const UpgradeEvent& event, const std::string& mode) {
  if (event.arg1 > 1 || event.arg2 > 1) {
    return "more than one device in " + mode + " mode is plugged in (" + Counts(event) +
           "); leave one";
  }
  return "the device shows only one side in " + mode + " mode (" + Counts(event) + ")";
}

UpgradeOutcome TimedOut(const UpgradeEvent& result) {
  if (result.arg1 == 1) {
    return {ExitCode::kTimedOut,
            "the device did not acknowledge its reset command within a second; is it awake?"};
  }
  return {ExitCode::kTimedOut, std::string("the device stopped answering the download") + kAgain};
}

}  // namespace

std::string NoticeText(const UpgradeEvent& notice, bool every_reset_is_echoed) {
  if (notice.code == PERILINK_UPGRADE_NOTICE_BOOT && notice.arg1 == 1) {
    return "the device acknowledged its reset command";
  }
  if (notice.code == PERILINK_UPGRADE_NOTICE_BOOT && notice.arg1 == 2) {
    return every_reset_is_echoed ? "the device is in boot mode"
                                 : "the reset command was sent, or the device is in boot mode";
  }
  if (notice.code == PERILINK_UPGRADE_NOTICE_DOWNLOAD && notice.arg1 == 3) {
    return "the device is ready for the download";
  }
  if (notice.code == PERILINK_UPGRADE_NOTICE_END)
    return "the device reports that it has the whole firmware";
  return "the device reports status " + std::to_string(notice.code) + ", detail " +
         std::to_string(notice.arg1);
}

UpgradeOutcome FailedOutcome(const UpgradeEvent& result) {
  switch (result.code) {
    case 2:
      return TimedOut(result);
    case 4:
      return {ExitCode::kNoDevice, WrongInterfaces(result, "normal")};
    case 5:
      return {ExitCode::kNoDevice, WrongInterfaces(result, "boot")};
    case 6:
      return {ExitCode::kNoDevice, "the device did not appear in normal mode in time"};
    case 7:
      return {ExitCode::kNoDevice,
              "the device did not appear in boot mode, or did not stay, in time"};
    case 8:
      return {ExitCode::kUpgrade, "the reset command could not be sent to the device"};
    case 9:
      return {ExitCode::kNoDevice,
              std::string("the device can't be opened in boot mode, or is gone") + kAgain};
    default:
      return {ExitCode::kUpgrade, "the upgrade failed with code " + std::to_string(result.code)};
  }
}

}  // namespace perictl
