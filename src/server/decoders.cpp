// What the host decodes callback data with, and the paths of the current device.
#include <algorithm>
#include <utility>

#include "perilink/server.h"
#include "platform/guard.h"
#include "server/state.h"

void GetDeviceInfo(const uint8_t* data, DeviceInfo* info) {
  std::copy_n(data + 4, sizeof(info->bytes), info->bytes);
}

bool isDeviceOnLine(const uint8_t* data) {
  return data[0] != 0;
}

void GetDeviceBatteryStatus(const uint8_t* data, BatteryLevel* battery) {
  battery->level = data[0];
  battery->charging = data[1];
  battery->voltage = static_cast<uint16_t>(data[2] << 8 | data[3]);
}

void GetDeviceStatusChanged(const uint8_t* data, DeviceStatus* status) {
  for (size_t i = 0; i < sizeof(status->flags); ++i)
    status->flags[i] = static_cast<uint8_t>((data[0] >> i) & 1);
}

uint32_t GetDeviceVersion(const uint8_t* data) {
  return static_cast<uint32_t>(data[0]) << 8 | data[1];
}

void UsbServer_GetCurrentInputDevice(std::wstring& path) {
  perilink::Guarded([&] { path = perilink::ServerState::Instance().InputPath(); });
}

void UsbServer_GetCurrentOutputDevice(std::wstring& path) {
  perilink::Guarded([&] { path = perilink::ServerState::Instance().OutputPath(); });
}
