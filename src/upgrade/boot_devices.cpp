#include "upgrade/boot_devices.h"

#include <new>
#include <utility>

#include "platform/win32.h"
#include "upgrade/tick.h"

namespace perilink {

HidPathList FindDevicePaths(const std::wstring& key) {
  constexpr int kTries = 100;
  for (int tries = kTries;; --tries) {
    try {
      if (auto paths = FindAllHidPathsByKey(key)) return std::move(*paths);
      if (tries == 1) throw SearchFailed();
    } catch (const std::bad_alloc&) {
      if (tries == 1) throw;
    }
    Sleep(kTickMs);
  }
}

bool FindNormalDevice(const UsbUpgradeFile& record) {
  const size_t inputs = FindDevicePaths(record.normal_input_key).size();
  const size_t outputs = FindDevicePaths(record.normal_output_key).size();
  return inputs == 1 && outputs == 1;
}

HidPathList FindBootDevices(const uint8_t* image) {
  if (!CheckImageHeader(image)) return {};
  return FindHidPathsByKey(ReadTextField(ReadImageHeader(image).boot_input_key));
}

HidPathList FindBootDevices(const UsbUpgradeFile& record) {
  if (!record.valid) return {};
  return FindDevicePaths(record.boot_input_key);
}

}  // namespace perilink
