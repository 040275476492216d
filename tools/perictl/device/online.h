// Whether a device answers, and why it does not.
#ifndef PERILINK_TOOLS_PERICTL_DEVICE_ONLINE_H_
#define PERILINK_TOOLS_PERICTL_DEVICE_ONLINE_H_

#include <string>

#include "perilink/records.h"

namespace perictl {

// Asks whether the device is on line, and returns the whole reply: data bytes 1 to 3 are its
// address. Throws Failure when it is asleep, silent or answers nonsense.
CommandFrame RequireOnline(const std::string& path);

// Throws the Failure that fits a device that has not answered a command as it should.
[[noreturn]] void FailUnanswered(const std::string& path, const std::string& what);

enum class Link { kOnline, kAsleep, kSilent, kNonsense, kLocked };
// The same without a failure.
Link AskLink(const std::string& path);
// "on line", "asleep", ...
const char* LinkText(Link link);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_DEVICE_ONLINE_H_
