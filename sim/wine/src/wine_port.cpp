#include "wine_port.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>

#include "sim/wine_device.h"

namespace perilink::sim {
namespace {

constexpr ULONG kUsbDevice = 0;  // the number of its child
constexpr ULONGLONG kLeavingMs = 10'000;

template <size_t size>
void SetText(WCHAR (&to)[size], const std::string& text) {
  std::copy_n(text.begin(), std::min(text.size(), size - 1), to);
}

// The "&" before collection or interface numbers is the only one that isn't between two numbers.
HidBusChild Describe(const UsbShape& shape, ULONG number, const std::string& kind) {
  HidBusChild child{};
  child.number = number;
  child.vendor_id = shape.vendor_id;
  child.product_id = shape.product_id;
  child.version = shape.version;
  SetText(child.kind, kind);
  SetText(child.instance, shape.serial);
  return child;
}

std::string UsbKind(const UsbShape& shape) {
  return shape.Key(shape.output).substr(0, std::strlen("vid_1234&pid_abcd"));
}

}  // namespace

WinePort::WinePort(Driver driver) : driver_(std::move(driver)), server_([this] { Serve(); }) {}

WinePort::~WinePort() {
  driver_.Call(HID_BUS_LEAVE);
  server_.join();
}

// Until those that have been unplugged, by whomever, are gone for the system too.
void WinePort::AwaitLeaving() const {
  const ULONGLONG end = GetTickCount64() + kLeavingMs;
  ULONG leaving = 0;
  while (driver_.Call(HID_BUS_LEAVING, leaving, leaving) && leaving != 0 && GetTickCount64() < end)
    Sleep(1);
}

void WinePort::Attach(Device& device, const UsbShape& shape) {
  AwaitLeaving();
  device_ = &device;
  shape_ = &shape;
  HidBusChild usb = Describe(shape, kUsbDevice, UsbKind(shape));
  usb.usb = TRUE;
  driver_.Call(HID_BUS_PLUG, usb);
  for (size_t i = 0; i < shape.interfaces.size(); ++i) {
    for (size_t k = 0; k < shape.interfaces[i].collections.size(); ++k) {
      const CollectionAt place{i, k};
      const Bytes& descriptor = shape.at(place).descriptor;
      HidBusChild child = Describe(shape, ++last_number_, shape.Key(place));
      child.descriptor_length = static_cast<USHORT>(descriptor.size());
      std::copy_n(descriptor.begin(), std::min(descriptor.size(), sizeof child.descriptor),
                  child.descriptor);
      if (driver_.Call(HID_BUS_PLUG, child)) children_[child.number] = place;
    }
  }
}

void WinePort::Detach() {
  for (const auto& [number, place] : std::exchange(children_, {}))
    driver_.Call(HID_BUS_UNPLUG, number);
  driver_.Call(HID_BUS_UNPLUG, kUsbDevice);
}

void WinePort::SendInput(CollectionAt from, std::span<const uint8_t> report) {
  const std::span<const uint8_t> wire = shape_->interfaces.at(from.interface_number).OnWire(report);
  HidBusReport sent{};
  sent.length = static_cast<ULONG>(std::min(wire.size(), sizeof sent.bytes));
  std::copy_n(wire.begin(), sent.length, sent.bytes);
  for (const auto& [number, place] : children_) {
    if (place != from) continue;
    sent.child = number;
    driver_.Call(HID_BUS_SEND, sent);
  }
}

void WinePort::Serve() {
  HidBusAnswer answer{};
  HidBusReport written{};
  while (driver_.Call(HID_BUS_NEXT, answer, written)) {
    const uint32_t error = Hand(written);
    // A held write stays without an answer until the device is unplugged.
    answer.ticket = error == ERROR_IO_PENDING ? 0 : written.ticket;
    answer.status = error == 0 ? 0 : static_cast<LONG>(0xC007'0000u | error);
  }
}

uint32_t WinePort::Hand(const HidBusReport& written) {
  const std::lock_guard guard(WineWorld());
  const auto found = children_.find(written.child);
  if (found == children_.end()) return ERROR_DEVICE_NOT_CONNECTED;
  const size_t number = found->second.interface_number;
  const Bytes report =
      shape_->interfaces.at(number).FromWire(std::span(written.bytes).first(written.length));
  return written.feature ? device_->OnFeatureReport(number, report)
                         : device_->OnOutputReport(number, report);
}

}  // namespace perilink::sim
