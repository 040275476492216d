// What an upgrade's events mean, for people.
#ifndef PERILINK_TOOLS_PERICTL_FIRMWARE_UPGRADE_WORDS_H_
#define PERILINK_TOOLS_PERICTL_FIRMWARE_UPGRADE_WORDS_H_

#include <string>

#include "exit_codes.h"
#include "perilink/records.h"

namespace perictl {

// `every_reset_is_echoed`: whether each of the file's devices acknowledges its reset command; a
// notice means less when one does not.
std::string NoticeText(const UpgradeEvent& notice, bool every_reset_is_echoed);

struct UpgradeOutcome {
  ExitCode code;
  std::string text;
};
// Of a result that ends the upgrade, other than success.
UpgradeOutcome FailedOutcome(const UpgradeEvent& result);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_FIRMWARE_UPGRADE_WORDS_H_
