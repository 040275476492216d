#include "kernel_port.h"

#include <utility>

namespace perilink::testing {
namespace {

UsbDevice::Answer Hand(sim::Device& device, const sim::InterfaceShape& shape, size_t number,
                       UsbDevice::Type type, const Bytes& report) {
  const sim::Bytes bytes = shape.FromWire(report);
  const uint32_t error = type == UsbDevice::Type::kFeature ? device.OnFeatureReport(number, bytes)
                                                           : device.OnOutputReport(number, bytes);
  return error == 0 ? UsbDevice::Answer::kTake : UsbDevice::Answer::kStall;
}

}  // namespace

KernelPort::KernelPort(int port) : port_(port), worker_([this] { Work(); }) {}

KernelPort::~KernelPort() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  added_.notify_one();
  worker_.join();
}

void KernelPort::Attach(sim::Device& device, const sim::UsbShape& shape) {
  shape_ = &shape;
  std::vector<UsbInterface> interfaces;
  for (const sim::InterfaceShape& one : shape.interfaces) {
    // A device has an OUT endpoint or none: both kinds are there.
    interfaces.push_back({one.ReportDescriptor(), !one.HasIds()});
  }
  attached_ = std::make_shared<UsbDevice>(
      UsbIdentity{shape.vendor_id, shape.product_id, shape.version, port_}, std::move(interfaces),
      [&device, &shape](size_t number, UsbDevice::Type type, const Bytes& report) {
        return Hand(device, shape.interfaces.at(number), number, type, report);
      });
  Later([usb = attached_] { usb->Plug(); });
}

void KernelPort::Detach() {
  attached_->PullOut();
  Later([usb = std::move(attached_)] { usb->Unplug(); });
  attached_ = nullptr;
}

void KernelPort::SendInput(sim::CollectionAt from, std::span<const uint8_t> report) {
  const std::span<const uint8_t> wire = shape_->interfaces.at(from.interface_number).OnWire(report);
  attached_->Send(from.interface_number, {wire.begin(), wire.end()});
}

void KernelPort::Later(std::function<void()> action) {
  const std::lock_guard lock(mutex_);
  actions_.push_back(std::move(action));
  added_.notify_one();
}

void KernelPort::Work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    added_.wait(lock, [this] { return ending_ || !actions_.empty(); });
    if (actions_.empty()) return;
    const std::function<void()> action = std::move(actions_.front());
    actions_.pop_front();
    lock.unlock();
    action();
    lock.lock();
  }
}

}  // namespace perilink::testing
