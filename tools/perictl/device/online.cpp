#include "device/online.h"

#include "exit_codes.h"
#include "perilink/finder.h"
#include "perilink/protocol.h"
#include "selection/interfaces.h"

namespace perictl {
namespace {

uint8_t ChecksumOf(const CommandFrame& frame) {
  return Perilink_CheckByte(reinterpret_cast<const uint8_t*>(&frame), sizeof frame - 1);
}

bool IsOnline(const CommandFrame& reply) {
  return reply.data[0] != 0;
}

// The pass-through exchange tests nothing, so it tells a silent device from a babbling one. Reports
// that the device sends by itself can come first; a few are let pass.
Link AskRaw(const std::string& path) {
  CommandFrame request{};
  request.report_id = PERILINK_REPORT_ID;
  request.command = PERILINK_COMMAND_ON_LINE;
  request.checksum = ChecksumOf(request);

  Link link = Link::kSilent;
  if (!UsbFinderC_OpenDevice(path.c_str())) link = Link::kLocked;
  for (int tries = 0; link == Link::kSilent && tries < 3; ++tries) {
    CommandFrame reply{};
    if (!UsbFinderC_ReadWriteDeviceData(reinterpret_cast<const uint8_t*>(&request),
                                        reinterpret_cast<uint8_t*>(&reply), sizeof request)) {
      break;
    }
    if (reply.checksum != ChecksumOf(reply)) {
      link = Link::kNonsense;
    } else if (reply.command == PERILINK_COMMAND_ON_LINE) {
      link = IsOnline(reply) ? Link::kOnline : Link::kAsleep;
    }
  }
  UsbFinderC_CloseDevice();
  return link;
}

}  // namespace

void FailUnanswered(const std::string& path, const std::string& what) {
  switch (AskRaw(path)) {
    case Link::kLocked:
      throw Failure(ExitCode::kNoDevice, WhyLocked(path));
    case Link::kAsleep:
      throw Failure(ExitCode::kOffline,
                    "the device is asleep or switched off: wake it with a movement or a click");
    case Link::kNonsense:
      throw Failure(ExitCode::kNonsense, "the device answers nonsense (asked for " + what +
                                             "): its reports have wrong checksums");
    case Link::kSilent:
    case Link::kOnline:
      break;
  }
  throw Failure(ExitCode::kNoAnswer, "the device does not answer (asked for " + what + ")");
}

CommandFrame RequireOnline(const std::string& path) {
  CommandFrame reply{};
  const bool told = UsbFinderC_GetDeviceOnLineWithUsbAddress(path.c_str(), &reply);
  if (!told || !IsOnline(reply)) FailUnanswered(path, "its on-line state");
  return reply;
}

Link AskLink(const std::string& path) {
  CommandFrame reply{};
  if (!UsbFinderC_GetDeviceOnLineWithUsbAddress(path.c_str(), &reply)) return AskRaw(path);
  return IsOnline(reply) ? Link::kOnline : Link::kAsleep;
}

const char* LinkText(Link link) {
  switch (link) {
    case Link::kOnline:
      return "on line";
    case Link::kAsleep:
      return "asleep";
    case Link::kSilent:
      return "silent";
    case Link::kNonsense:
      return "nonsense";
    case Link::kLocked:
      break;
  }
  return "locked";
}

}  // namespace perictl
