// The registry record of a device: when its level was last saved, and the level.
#ifndef PERILINK_SRC_BATTERY_SAVED_RECORD_H_
#define PERILINK_SRC_BATTERY_SAVED_RECORD_H_

#include <array>
#include <cstdint>
#include <string_view>

namespace perilink {

// Three bytes that tell one device from another.
using DeviceAddress = std::array<uint8_t, 3>;

// A record's contents. A missing or malformed record counts as a full battery, saved in 1970.
struct SavedRecord {
  uint32_t time = 0;  // low 32 bits of the calendar time of saving, in seconds
  uint8_t level = 100;
};

// Reads "TIME-LEVEL": exactly two parts of decimal digits with one minus sign between them, either
// of which may be empty and then counts as 0. Numbers of any length are taken modulo the size of
// their field.
SavedRecord ParseSavedRecord(std::wstring_view text);

// The device's record under HKEY_CURRENT_USER; the default record when it can't be read.
SavedRecord ReadSavedRecord(const DeviceAddress& device);

// Writes the device's record, creating the key when it is missing. Failures go unreported.
void WriteSavedRecord(const DeviceAddress& device, int64_t calendar_seconds, uint8_t level);

}  // namespace perilink

#endif  // PERILINK_SRC_BATTERY_SAVED_RECORD_H_
