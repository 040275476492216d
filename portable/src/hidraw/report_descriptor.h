// What a HID report descriptor says about a device's top-level collections: who they are for, and
// which reports of which length belong to each.
#ifndef PERILINK_PLATFORM_SRC_HIDRAW_REPORT_DESCRIPTOR_H_
#define PERILINK_PLATFORM_SRC_HIDRAW_REPORT_DESCRIPTOR_H_

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace perilink::platform {

enum ReportKind : size_t { kInputReport, kOutputReport, kFeatureReport, kReportKinds };

// A collection's reports of one kind.
struct CollectionReports {
  std::bitset<256> ids;  // 0 where reports have no id
  size_t length = 0;     // bytes of the longest, id byte included; 0: there are none
};

struct HidCollection {
  uint16_t usage_page = 0;
  uint16_t usage = 0;
  std::array<CollectionReports, kReportKinds> reports;
};

struct ReportDescriptor {
  std::vector<HidCollection> collections;  // in the descriptor's order
  // Whether the device's reports of a kind begin with an id byte.
  std::array<bool, kReportKinds> numbered{};
};

// Takes any bytes. Reading ends at the first item that is cut off or breaks the format; what stands
// before it counts. Takes time and memory in proportion to the bytes.
ReportDescriptor ParseReportDescriptor(std::span<const uint8_t> bytes);

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_HIDRAW_REPORT_DESCRIPTOR_H_
