// The bus of simulated devices.
#include <algorithm>
#include <vector>

#include "path.h"
#include "perilink_platform/error.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "report_check.h"
#include "scheduler.h"
#include "window_system.h"

namespace perilink::platform {
namespace {

class Connection;

class TheVirtualBus final : public VirtualBus {
 public:
  std::vector<std::wstring> PresentInterfaces() override;
  DWORD Open(const std::wstring& path, DWORD access, HidInputSink& sink,
             std::unique_ptr<HidConnection>& connection) override;
  void Plug(VirtualHidInterface& hid_interface) override;
  void Unplug(VirtualHidInterface& hid_interface) override;
  void Deliver(VirtualHidInterface& hid_interface, std::span<const uint8_t> report) override;
  void BroadcastUsbChange(const std::wstring& usb_device_path, bool arrived) override;
  size_t OpenConnections() const override;

  void Disconnect(Connection& connection) { std::erase(connections_, &connection); }

 private:
  std::vector<VirtualHidInterface*> plugged_;
  std::vector<Connection*> connections_;
};

class Connection final : public HidConnection {
 public:
  Connection(TheVirtualBus& bus, HidInputSink& sink) : bus_(bus), sink_(sink) {}

  ~Connection() override {
    const DeviceGuard guard;
    bus_.Disconnect(*this);
    if (interface_ != nullptr) interface_->OnClose();
  }

  // 0, or the error with which the device refuses.
  DWORD Open(VirtualHidInterface& hid_interface) {
    const DWORD error = hid_interface.OnOpen();
    if (error == 0) interface_ = &hid_interface;
    return error;
  }

  bool IsOf(const VirtualHidInterface& hid_interface) const { return interface_ == &hid_interface; }
  HidInputSink& sink() { return sink_; }

  // The device may be gone as soon as this has returned.
  void OnUnplugged() {
    interface_->OnClose();
    interface_ = nullptr;
    Scheduler::Get().Set(unplugged_);
    sink_.OnRemoved();
  }

  DWORD WriteOutputReport(std::span<const uint8_t> report) override {
    return Hand(report, &VirtualHidInterface::OutputReportLength,
                &VirtualHidInterface::OnOutputReport);
  }

  DWORD SetFeatureReport(std::span<const uint8_t> report) override {
    return Hand(report, &VirtualHidInterface::FeatureReportLength,
                &VirtualHidInterface::OnFeatureReport);
  }

  HidAttributes Attributes() const override {
    const DeviceGuard guard;
    return interface_ == nullptr ? HidAttributes{} : interface_->Attributes();
  }

  size_t InputReportLength() const override {
    const DeviceGuard guard;
    return interface_ == nullptr ? 0 : interface_->InputReportLength();
  }

 private:
  using Length = size_t (VirtualHidInterface::*)() const;
  using Handler = DWORD (VirtualHidInterface::*)(std::span<const uint8_t>);

  DWORD Hand(std::span<const uint8_t> report, Length declared, Handler handler) {
    DWORD error = 0;
    {
      const DeviceGuard guard;
      if (interface_ == nullptr) return ERROR_DEVICE_NOT_CONNECTED;
      const size_t length = (interface_->*declared)();
      error = CheckReportSize(report.size(), length);
      if (error == 0) error = (interface_->*handler)(PaddedReport(report, length));
    }
    if (error != ERROR_IO_PENDING) return error;
    Scheduler::Get().Wait(unplugged_, kForever, {"a device that holds a report"});
    return ERROR_DEVICE_NOT_CONNECTED;
  }

  TheVirtualBus& bus_;
  VirtualHidInterface* interface_ = nullptr;  // null before the opening and once it was unplugged
  Signal unplugged_{true};
  HidInputSink& sink_;
};

std::vector<std::wstring> TheVirtualBus::PresentInterfaces() {
  const DeviceGuard guard;
  std::vector<std::wstring> paths;
  for (const VirtualHidInterface* const plugged : plugged_)
    paths.push_back(plugged->Path());
  return paths;
}

DWORD TheVirtualBus::Open(const std::wstring& path, DWORD /*access*/, HidInputSink& sink,
                          std::unique_ptr<HidConnection>& connection) {
  const DeviceGuard guard;
  const auto found = std::find_if(
      plugged_.begin(), plugged_.end(),
      [&path](const VirtualHidInterface* plugged) { return SamePath(plugged->Path(), path); });
  if (found == plugged_.end()) return ERROR_FILE_NOT_FOUND;
  auto opened = std::make_unique<Connection>(*this, sink);
  connections_.push_back(opened.get());
  const DWORD error = opened->Open(**found);
  if (error == 0) connection = std::move(opened);
  return error;
}

void TheVirtualBus::Plug(VirtualHidInterface& hid_interface) {
  const DeviceGuard guard;
  if (std::find(plugged_.begin(), plugged_.end(), &hid_interface) == plugged_.end())
    plugged_.push_back(&hid_interface);
}

void TheVirtualBus::Unplug(VirtualHidInterface& hid_interface) {
  const DeviceGuard guard;
  const std::vector<Connection*> connections(connections_);
  if (std::erase(plugged_, &hid_interface) == 0) return;
  for (Connection* const connection : connections) {
    if (connection->IsOf(hid_interface)) connection->OnUnplugged();
  }
}

void TheVirtualBus::Deliver(VirtualHidInterface& hid_interface, std::span<const uint8_t> report) {
  const DeviceGuard guard;
  for (Connection* const connection : connections_) {
    if (connection->IsOf(hid_interface)) connection->sink().OnInputReport(report);
  }
}

void TheVirtualBus::BroadcastUsbChange(const std::wstring& usb_device_path, bool arrived) {
  WindowSystem::Get().NotifyDeviceChange(usb_device_path, arrived);
}

size_t TheVirtualBus::OpenConnections() const {
  const DeviceGuard guard;
  return connections_.size();
}

}  // namespace

VirtualBus& Bus() {
  static auto* const bus = new TheVirtualBus;
  return *bus;
}

}  // namespace perilink::platform
