#include "selection/interfaces.h"

#include <charconv>

#include "common/ascii.h"
#include "perilink/finder.h"
#include "perilink/protocol.h"
#include "system.h"

namespace perictl {
namespace {

using perilink::tools::Lower;

// The part between the separators, counted from 0.
std::string Part(const std::string& path, size_t number) {
  size_t start = 0;
  for (; number > 0; --number) {
    const size_t at = path.find('#', start);
    if (at == std::string::npos) return "";
    start = at + 1;
  }
  return path.substr(start, path.find('#', start) - start);
}

// Four hexadecimal digits behind the label.
std::optional<uint16_t> HexBehind(const std::string& key, const std::string& label) {
  const size_t at = key.find(label);
  if (at == std::string::npos) return std::nullopt;
  uint16_t value = 0;
  const char* const start = key.data() + at + label.size();
  const char* const end = key.data() + std::min(at + label.size() + 4, key.size());
  const auto [stop, error] = std::from_chars(start, end, value, 16);
  if (error != std::errc() || stop - start != 4) return std::nullopt;
  return value;
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

std::string KeyOf(const std::string& path) {
  return Part(path, 1);
}

std::string InstanceOf(const std::string& path) {
  const std::string part = Part(path, 2);
  return part.substr(0, part.rfind('&'));
}

std::optional<perilink::tools::DeviceId> IdOf(const std::string& path) {
  const std::string key = Lower(KeyOf(path));
  const auto vendor = HexBehind(key, "vid_");
  const auto product = HexBehind(key, "pid_");
  if (!vendor || !product) return std::nullopt;
  return perilink::tools::DeviceId{*vendor, *product};
}

bool TakesCommands(const std::string& path) {
  static_assert(PERILINK_DEFAULT_INTERFACE == 1 && PERILINK_DEFAULT_COLLECTION == 5);
  return HoldsKey(path, "mi_01&col05");
}

bool HoldsKey(const std::string& path, const std::string& key) {
  return Lower(path).find(Lower(key)) != std::string::npos;
}

std::optional<DeviceIds> ReadIds(const std::string& path) {
  HIDD_ATTRIBUTES attributes{};
  attributes.Size = sizeof attributes;
  UsbFinderC_GetUsbDeviceAttribute(path.c_str(), &attributes);
  // The export reports nothing; no device has vendor 0.
  if (attributes.VendorID == 0) return std::nullopt;
  return DeviceIds{attributes.VendorID, attributes.ProductID, attributes.VersionNumber};
}

std::string WhyLocked(const std::string& path) {
  const std::string why = MissingPermission(path);
  return why.empty() ? "the device can't be opened, or is gone: " + path : why;
}

}  // namespace perictl
