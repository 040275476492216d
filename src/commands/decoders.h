// Decodes the data of an answer, both for direct commands and for hosts that decode what the
// server's callback gives them.
#ifndef PERILINK_SRC_COMMANDS_DECODERS_H_
#define PERILINK_SRC_COMMANDS_DECODERS_H_

#include <cstdint>

#include "perilink/records.h"

namespace perilink {

// `data`: the answer's data bytes, 0 to 6 of them.
DeviceInfo DecodeDeviceInfo(const uint8_t* data);
// 0 to 3. The voltage travels high byte first.
BatteryLevel DecodeBatteryLevel(const uint8_t* data);
// 0 and 1, high byte first.
uint16_t DecodeVersion(const uint8_t* data);

}  // namespace perilink

#endif  // PERILINK_SRC_COMMANDS_DECODERS_H_
