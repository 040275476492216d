// The parts of a configuration that a device stores, checks and takes by themselves, and what has
// to be written to turn one configuration into another.
#ifndef PERILINK_TOOLS_COMMON_CONFIG_PARTS_H_
#define PERILINK_TOOLS_COMMON_CONFIG_PARTS_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "common/config.h"
#include "perilink/config_layout.h"
#include "perilink/records.h"

namespace perilink::tools {

enum class PartKind { kField, kShortcut, kMacro };

struct ConfigPart {
  std::string name;  // "dpi_levels[2].color", "led_bar[0..5]", "shortcuts[3]"
  PartKind kind;
  size_t offset;  // of its bytes in ProtocolData
  size_t size;
  size_t address;  // in the image
  size_t slot;     // of a shortcut or macro
  FieldRule rule;  // of a field
};

// All parts, in the order in which the library writes them. Each is one write.
const std::vector<ConfigPart>& ConfigParts();

// The bytes of the record that the part is made of.
KnownBytes PartBytes(const ConfigPart& part);
inline bool Overlap(const ConfigPart& part, size_t offset, size_t size) {
  return part.offset < offset + size && offset < part.offset + part.size;
}

// What the library writes for a part: values and check byte.
std::vector<uint8_t> EncodedPart(const ProtocolData& record, const ConfigPart& part);

// Throws ConfigError, which names the field, for a record that a device would not give back as it
// is, because one of its values goes only with another.
void RequireHoldable(const ProtocolData& record);

// A device's configuration, as read.
struct DeviceConfig {
  std::vector<uint8_t> image;  // of a whole read
  ProtocolData record{};       // the image, parsed
  // A whole read shows a slot that it can't use as an empty one. The device's own counts of events,
  // by slot, tell the two apart.
  std::vector<uint8_t> shortcut_counts;
  std::vector<uint8_t> macro_counts;
};

// Makes the record, and fills in the counts that the image shows.
DeviceConfig DeviceConfigFromImage(std::span<const uint8_t> image);

// The parts whose bytes in the device are not those of the parsed record: their check failed, or
// the value was not taken. What the record holds there is a substitute, not the device's value.
NameList UnsoundParts(const DeviceConfig& device);
// The bytes of all other parts.
KnownBytes SoundBytes(const DeviceConfig& device);

// Whether most of the settings are as a device writes them, or erased. Otherwise the memory holds
// something else, as a keyboard's does.
bool LooksLikeConfig(const DeviceConfig& device);

struct ConfigUpdate {
  ProtocolData record{};    // what the device shall hold
  ProtocolData previous{};  // for SetDllProtocolData: other than `record` in what has to be written
  std::vector<ConfigPart> writes;  // in the order in which they are sent and acknowledged
};

// What of `record` has to be written, among the parts that may be.
ConfigUpdate PlanUpdate(const DeviceConfig& device, const ProtocolData& record,
                        const std::function<bool(const ConfigPart&)>& may_write);

// What of a file has to be written: every part that the file tells, or that it completes.
ConfigUpdate PlanLoad(const DeviceConfig& device, const ConfigFile& file);

// Throws ConfigError, which names the field, for an update that a device would not keep as it is.
void RequireKept(const ConfigUpdate& update);

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_COMMON_CONFIG_PARTS_H_
