#include "commands/decoders.h"

#include "perilink/server.h"

namespace perilink {

DeviceInfo DecodeDeviceInfo(const uint8_t* data) {
  // The first four bytes are the request's pseudo-random ones.
  return DeviceInfo{{data[4], data[5], data[6]}};
}

BatteryLevel DecodeBatteryLevel(const uint8_t* data) {
  BatteryLevel battery{};
  battery.level = data[0];
  battery.charging = data[1];
  battery.voltage = static_cast<uint16_t>(data[2] << 8 | data[3]);
  return battery;
}

uint16_t DecodeVersion(const uint8_t* data) {
  return static_cast<uint16_t>(data[0] << 8 | data[1]);
}

}  // namespace perilink

void GetDeviceInfo(const uint8_t* data, DeviceInfo* info) {
  *info = perilink::DecodeDeviceInfo(data);
}

bool isDeviceOnLine(const uint8_t* data) {
  return data[0] != 0;
}

void GetDeviceBatteryStatus(const uint8_t* data, BatteryLevel* battery) {
  *battery = perilink::DecodeBatteryLevel(data);
}

void GetDeviceStatusChanged(const uint8_t* data, DeviceStatus* status) {
  for (size_t i = 0; i < sizeof(status->flags); ++i)
    status->flags[i] = static_cast<uint8_t>((data[0] >> i) & 1);
}

uint32_t GetDeviceVersion(const uint8_t* data) {
  return perilink::DecodeVersion(data);
}
