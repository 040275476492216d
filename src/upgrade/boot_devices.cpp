#include "upgrade/boot_devices.h"

namespace perilink {

bool FindNormalDevice(const UsbUpgradeFile& record) {
  const size_t inputs = FindHidPathsByKey(record.normal_input_end_point).size();
  const size_t outputs = FindHidPathsByKey(record.normal_output_end_point).size();
  return inputs == 1 && outputs == 1;
}

HidPathList FindBootDevices(const uint8_t* image) {
  if (!CheckImageHeader(image)) return {};
  return FindHidPathsByKey(ReadTextField(ReadImageHeader(image).boot_input_end_point));
}

HidPathList FindBootDevices(const UsbUpgradeFile& record) {
  if (!record.valid) return {};
  return FindHidPathsByKey(record.boot_input_end_point);
}

}  // namespace perilink
