#include "upgrade/device_io.h"

#include <array>
#include <cstring>

namespace perilink {

bool SendReport(HANDLE device, std::span<const uint8_t> bytes, bool as_feature_report) {
  const auto length = static_cast<DWORD>(bytes.size());
  if (as_feature_report) {
    // The call takes a buffer that it might write to.
    std::array<uint8_t, 256> report{};
    std::memcpy(report.data(), bytes.data(), bytes.size());
    return HidD_SetFeature(device, report.data(), length) != FALSE;
  }
  DWORD written = 0;
  return WriteFile(device, bytes.data(), length, &written, nullptr) != FALSE;
}

std::wstring HandleText(HANDLE handle) {
  return std::to_wstring(reinterpret_cast<intptr_t>(handle));
}

}  // namespace perilink
