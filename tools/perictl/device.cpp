#include "device.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <numeric>
#include <span>

#include "exit_codes.h"
#include "system.h"

namespace perictl {
namespace {

// The interface number and collection that the devices keep for their commands.
constexpr char kCommandInterfaceKey[] = "mi_01&col05";
constexpr uint8_t kReadOnline = 0x03;

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

uint8_t Checksum(const CommandFrame& frame) {
  const std::span bytes(reinterpret_cast<const uint8_t*>(&frame), sizeof frame - 1);
  return static_cast<uint8_t>(0x55 - std::accumulate(bytes.begin(), bytes.end(), 0));
}

std::string Describe(const Selection& selection) {
  if (!selection.path.empty()) return "at path " + selection.path;
  if (!selection.key.empty()) return "whose path holds '" + Lower(selection.key) + "'";
  if (selection.vendor_id.empty()) return std::string("with ") + kCommandInterfaceKey;
  if (selection.product_id.empty()) return "of vendor " + selection.vendor_id;
  return "with id " + selection.vendor_id + ":" + selection.product_id;
}

bool IsOnline(const CommandFrame& reply) {
  return reply.data[0] != 0;
}

[[noreturn]] void FailOffline() {
  throw Failure(ExitCode::kOffline,
                "the device is asleep or switched off: wake it with a movement or a click");
}

// A key often matches every interface of a device; those that take commands are meant, if there are
// any.
std::vector<std::string> PreferCommandInterfaces(std::vector<std::string> paths) {
  std::vector<std::string> preferred;
  std::copy_if(
      paths.begin(), paths.end(), std::back_inserter(preferred),
      [](const std::string& path) { return path.find(kCommandInterfaceKey) != std::string::npos; });
  return preferred.empty() ? paths : preferred;
}

enum class RawAnswer { kCannotOpen, kSilent, kNonsense, kOffline, kSane };

// The pass-through exchange tests nothing, so it tells a silent device from a babbling one. Reports
// that the device sends by itself can come first; a few are let pass.
RawAnswer AskRaw(const std::string& path) {
  CommandFrame request{};
  request.report_id = 0x08;
  request.command = kReadOnline;
  request.checksum = Checksum(request);

  RawAnswer answer = RawAnswer::kSilent;
  if (!UsbFinderC_OpenDevice(path.c_str())) answer = RawAnswer::kCannotOpen;
  for (int tries = 0; answer == RawAnswer::kSilent && tries < 3; ++tries) {
    CommandFrame reply{};
    if (!UsbFinderC_ReadWriteDeviceData(reinterpret_cast<const uint8_t*>(&request),
                                        reinterpret_cast<uint8_t*>(&reply), sizeof request)) {
      break;
    }
    if (reply.checksum != Checksum(reply)) answer = RawAnswer::kNonsense;
    if (reply.checksum == Checksum(reply) && reply.command == kReadOnline) {
      answer = IsOnline(reply) ? RawAnswer::kSane : RawAnswer::kOffline;
    }
  }
  UsbFinderC_CloseDevice();
  return answer;
}

}  // namespace

std::vector<std::string> TakeList(char** list, uint32_t count) {
  std::vector<std::string> copy(list, list + count);
  UsbFinderC_Free(list, static_cast<int32_t>(count));
  return copy;
}

std::vector<std::string> AllInterfaces() {
  uint32_t count = 0;
  char** list = UsbFinderC_EnumHidDeviceList(&count);
  return TakeList(list, count);
}

std::optional<DeviceIds> ReadIds(const std::string& path) {
  HIDD_ATTRIBUTES attributes{};
  attributes.Size = sizeof attributes;
  UsbFinderC_GetUsbDeviceAttribute(path.c_str(), &attributes);
  // The export reports nothing; no device has vendor 0.
  if (attributes.VendorID == 0) return std::nullopt;
  return DeviceIds{attributes.VendorID, attributes.ProductID, attributes.VersionNumber};
}

std::vector<std::string> MatchingInterfaces(const Selection& selection) {
  uint32_t count = 0;
  char** list = nullptr;
  if (!selection.path.empty()) {
    std::vector<std::string> matching = AllInterfaces();
    std::erase_if(matching, [&selection](const std::string& path) {
      return Lower(path) != Lower(selection.path);
    });
    return matching;
  }
  if (!selection.key.empty()) {
    list = UsbFinderC_FindHidDevicesByKey(selection.key.c_str(), &count);
  } else if (!selection.vendor_id.empty()) {
    list = UsbFinderC_FindHidDevicesByDefaultDeviceId(selection.vendor_id.c_str(),
                                                      selection.product_id.c_str(), &count);
  } else {
    list = UsbFinderC_FindHidDevicesByKey(kCommandInterfaceKey, &count);
  }
  return PreferCommandInterfaces(TakeList(list, count));
}

std::string SelectDevice(const Context& context) {
  const std::vector<std::string> matching = MatchingInterfaces(context.selection);
  if (matching.empty()) {
    throw Failure(ExitCode::kNoDevice, "no device " + Describe(context.selection) +
                                           " is plugged in; 'perictl list' shows what there is");
  }
  return matching.front();
}

void FailUnanswered(const std::string& path, const std::string& what) {
  switch (AskRaw(path)) {
    case RawAnswer::kCannotOpen:
      if (const std::string why = MissingPermission(path); !why.empty())
        throw Failure(ExitCode::kNoDevice, why);
      throw Failure(ExitCode::kNoDevice, "the device can't be opened, or is gone: " + path);
    case RawAnswer::kOffline:
      FailOffline();
    case RawAnswer::kNonsense:
      throw Failure(ExitCode::kNonsense, "the device answers nonsense (asked for " + what +
                                             "): its reports have wrong checksums");
    case RawAnswer::kSilent:
    case RawAnswer::kSane:
      break;
  }
  throw Failure(ExitCode::kNoAnswer, "the device does not answer (asked for " + what + ")");
}

CommandFrame RequireOnline(const std::string& path) {
  CommandFrame reply{};
  if (!UsbFinderC_GetDeviceOnLineWithUsbAddress(path.c_str(), &reply)) {
    FailUnanswered(path, "its on-line state");
  }
  if (!IsOnline(reply)) FailOffline();
  return reply;
}

}  // namespace perictl
