// What perictl's exit code tells a script. The numbers are stable: new ones are added at the end.
#ifndef PERILINK_TOOLS_PERICTL_EXIT_CODES_H_
#define PERILINK_TOOLS_PERICTL_EXIT_CODES_H_

#include <span>
#include <stdexcept>
#include <string>

namespace perictl {

enum class ExitCode : int {
  kSuccess = 0,
  kInternal = 1,  // perictl itself failed, for example its output could not be written
  kUsage = 2,     // the command line makes no sense
  kNoDevice = 3,  // no such device is plugged in, or it can't be opened
  kOffline = 4,   // the receiver answers, but the device behind it is asleep or switched off
  kNoAnswer = 5,  // the device takes the question and stays silent
  kNonsense = 6,  // the device answers with something that is no answer
  kRefused = 7,   // the device answered that it won't, or kept another setting than the one sent
  kFile = 8,      // a file can't be read or written, or holds something else
  kUpgrade = 9,   // the device did not take a firmware upgrade
  kDiffers = 10,  // no failure: two configurations that were compared differ
  kDamagedFile = 11,  // an upgrade file is damaged, truncated or none; nothing was sent
  kTimedOut = 12,     // a firmware upgrade ended because the device stopped answering
  kInterrupted = 13,  // Ctrl-C ended the command before it was through
  kSeveral = 14,      // several devices match, and the command changes one
  kDeclined = 15,     // perictl would not do it without --force, or was told not to
};

// Short name of a code, for --json.
const char* ExitCodeName(ExitCode code);

// All codes with their meanings, in their order.
struct ExitCodeRow {
  ExitCode code;
  const char* name;
  const char* meaning;
};
std::span<const ExitCodeRow> ExitCodes();

// Ends a command: one line for a person, and the code. Thrown by commands, reported by main.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_EXIT_CODES_H_
