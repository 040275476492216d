#include "hid_interface.h"

#include <cstdio>
#include <utility>

namespace perilink::sim {

std::string InterfaceKey(const InterfaceShape& shape) {
  char text[64];
  std::snprintf(text, sizeof(text), "vid_%04x&pid_%04x", shape.vendor_id, shape.product_id);
  std::string key = text;
  if (shape.interface_number >= 0) {
    std::snprintf(text, sizeof(text), "&mi_%02d", shape.interface_number);
    key += text;
  }
  if (shape.collection > 0) {
    std::snprintf(text, sizeof(text), "&col%02d", shape.collection);
    key += text;
  }
  return key;
}

HidInterface::HidInterface(InterfaceShape shape, InterfaceOwner& owner)
    : shape_(std::move(shape)), owner_(owner) {
  char index[16];
  std::snprintf(index, sizeof(index), "%04x",
                static_cast<unsigned>(shape_.collection > 0 ? shape_.collection - 1 : 0));
  const std::string path = "\\\\?\\hid#" + Key() + "#7&" + shape_.instance + "&0&" + index +
                           "#{4d1e55b2-f16f-11cf-88cb-001111000030}";
  path_.assign(path.begin(), path.end());
}

platform::HidAttributes HidInterface::Attributes() const {
  return {shape_.vendor_id, shape_.product_id, shape_.version};
}

DWORD HidInterface::OnOutputReport(std::span<const uint8_t> report) {
  return owner_.OnReport(report, false);
}

DWORD HidInterface::OnFeatureReport(std::span<const uint8_t> report) {
  return owner_.OnReport(report, true);
}

}  // namespace perilink::sim
