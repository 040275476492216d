#include "sim/usb_shape.h"

#include <cstdio>

namespace perilink::sim {

Bytes InterfaceShape::ReportDescriptor() const {
  Bytes descriptor;
  for (const CollectionShape& part : collections)
    descriptor.insert(descriptor.end(), part.descriptor.begin(), part.descriptor.end());
  return descriptor;
}

std::span<const uint8_t> InterfaceShape::OnWire(std::span<const uint8_t> report) const {
  return HasIds() || report.empty() ? report : report.subspan(1);
}

Bytes InterfaceShape::FromWire(std::span<const uint8_t> report) const {
  Bytes with_id(report.begin(), report.end());
  if (!HasIds()) with_id.insert(with_id.begin(), 0);
  return with_id;
}

std::string UsbShape::Key(CollectionAt place) const {
  char text[64];
  std::snprintf(text, sizeof(text), "vid_%04x&pid_%04x", unsigned{vendor_id}, unsigned{product_id});
  std::string key = text;
  if (interfaces.size() > 1) {
    std::snprintf(text, sizeof(text), "&mi_%02u", static_cast<unsigned>(place.interface_number));
    key += text;
  }
  if (interfaces.at(place.interface_number).collections.size() > 1) {
    std::snprintf(text, sizeof(text), "&col%02u", static_cast<unsigned>(place.collection + 1));
    key += text;
  }
  return key;
}

}  // namespace perilink::sim
