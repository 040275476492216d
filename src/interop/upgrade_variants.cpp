// The upgrade for hosts of the narrow and managed families.
#include "interop/returned_lists.h"
#include "perilink/upgrade.h"
#include "upgrade/boot_devices.h"
#include "upgrade/file_split.h"
#include "upgrade/log.h"

namespace perilink {
namespace {

auto BootDevicesOf(const uint8_t* file) {
  return [file] { return FindBootDevices(file); };
}

}  // namespace
}  // namespace perilink

bool CS_UsbUpgrade_Start(const uint8_t* file, UpgradeCallback callback, uint32_t timeout) {
  return UsbUpgrade_Start(file, callback, timeout);
}

SAFEARRAY* CS_UsbUpgrade_FileSplit(const uint8_t* file, uint32_t file_length, int32_t which) {
  return perilink::Guarded<SAFEARRAY*>(nullptr, [&] {
    return perilink::ToByteArray(perilink::FindImage(file, file_length, which));
  });
}

char** UsbUpgradeC_FindBootDevices(const uint8_t* file, uint32_t* count) {
  return perilink::NarrowListFrom(count, perilink::BootDevicesOf(file));
}

SAFEARRAY* CS_UsbUpgrade_FindBootDevices(const uint8_t* file) {
  return perilink::BstrArrayFrom(perilink::BootDevicesOf(file));
}

char** UsbUpgradeC_GetLogs(uint32_t* count) {
  return perilink::NarrowListFrom(count, [] { return perilink::CopyUpgradeLog(); });
}

SAFEARRAY* CS_UsbUpgrade_GetLogs() {
  return perilink::BstrArrayFrom([] { return perilink::CopyUpgradeLog(); });
}
