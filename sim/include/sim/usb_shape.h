// What a bus is told of a virtual device: a USB device with HID interfaces, and for each the report
// descriptor that a system parses. Plain data; the device fills it in.
//
// A report's bytes are everywhere as a host's file has them: the id first, or 0 where an interface
// has no ids. On the wire such an interface has no id byte: OnWire and FromWire convert.
#ifndef PERILINK_SIM_USB_SHAPE_H_
#define PERILINK_SIM_USB_SHAPE_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "sim/report.h"

namespace perilink::sim {

// One top-level collection. Windows shows each as a device of its own.
struct CollectionShape {
  uint16_t usage_page = 0;
  uint16_t usage = 0;
  uint8_t report_id = 0;  // of all its reports; 0: the interface has no ids
  // Bytes of its reports, id byte included; 0: it has none of that kind.
  size_t input_length = 0;
  size_t output_length = 0;
  size_t feature_length = 0;
  // Its part of the report descriptor, complete in itself.
  Bytes descriptor;
};

// One USB interface. Either all its collections have ids, or it has a single one.
struct InterfaceShape {
  std::vector<CollectionShape> collections;

  Bytes ReportDescriptor() const;
  bool HasIds() const { return collections.front().report_id != 0; }
  // A report as it goes over the wire, and back.
  std::span<const uint8_t> OnWire(std::span<const uint8_t> report) const;
  Bytes FromWire(std::span<const uint8_t> report) const;
};

// A collection's place: its interface's number and its own among the interface's, both from 0.
struct CollectionAt {
  size_t interface_number = 0;
  size_t collection = 0;
  bool operator==(const CollectionAt&) const = default;
};

struct UsbShape {
  uint16_t vendor_id = 0;
  uint16_t product_id = 0;
  uint16_t version = 0;
  std::string manufacturer;
  std::string product;
  std::string serial;  // devices of one kind have different ones
  std::vector<InterfaceShape> interfaces;
  CollectionAt input;   // where the device's answers and events come from
  CollectionAt output;  // where it takes requests

  const CollectionShape& at(CollectionAt place) const {
    return interfaces.at(place.interface_number).collections.at(place.collection);
  }
  // What a host looks for in a path, as in "vid_1234&pid_abcd&mi_01&col05". As on Windows, an
  // interface or collection that is the only one has no number there, collections count from 1.
  std::string Key(CollectionAt place) const;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_USB_SHAPE_H_
