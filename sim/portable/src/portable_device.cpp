#include "sim/portable_device.h"

#include <cstdio>
#include <map>
#include <memory>
#include <utility>

#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"

namespace perilink::sim {
namespace {

class TheWorld final : public World {
 public:
  uint64_t NowMicros() const override { return platform::NowMicros(); }
  void Schedule(uint64_t at_micros, std::function<void()> action) override {
    platform::Schedule(at_micros, std::move(action));
  }
  void lock() override { platform::LockDevices(); }
  void unlock() override { platform::UnlockDevices(); }
};

std::wstring Wide(const std::string& text) {
  return {text.begin(), text.end()};
}

std::wstring HidPath(const UsbShape& shape, CollectionAt place) {
  char index[16];
  std::snprintf(index, sizeof(index), "%04x", static_cast<unsigned>(place.collection));
  return Wide("\\\\?\\hid#" + shape.Key(place) + "#7&" + shape.serial + "&0&" + index +
              "#{4d1e55b2-f16f-11cf-88cb-001111000030}");
}

std::wstring UsbPath(const UsbShape& shape) {
  char key[32];
  std::snprintf(key, sizeof(key), "vid_%04x&pid_%04x", unsigned{shape.vendor_id},
                unsigned{shape.product_id});
  return Wide(std::string("\\\\?\\usb#") + key + "#" + shape.serial +
              "#{a5dcbf10-6530-11d2-901f-00c04fb951ed}");
}

std::vector<CollectionAt> PlacesOf(const UsbShape& shape) {
  std::vector<CollectionAt> places;
  for (size_t i = 0; i < shape.interfaces.size(); ++i) {
    for (size_t k = 0; k < shape.interfaces[i].collections.size(); ++k)
      places.push_back({i, k});
  }
  return places;
}

// One collection of a device on the platform's bus.
class PluggedCollection final : public platform::VirtualHidInterface {
 public:
  PluggedCollection(Device& device, const UsbShape& shape, CollectionAt place)
      : device_(device), shape_(shape), place_(place), path_(HidPath(shape, place)) {}

  std::wstring Path() const override { return path_; }
  platform::HidAttributes Attributes() const override {
    return {shape_.vendor_id, shape_.product_id, shape_.version};
  }
  size_t InputReportLength() const override { return shape_.at(place_).input_length; }
  size_t OutputReportLength() const override { return shape_.at(place_).output_length; }
  size_t FeatureReportLength() const override { return shape_.at(place_).feature_length; }
  DWORD OnOutputReport(std::span<const uint8_t> report) override {
    return device_.OnOutputReport(place_.interface_number, report);
  }
  DWORD OnFeatureReport(std::span<const uint8_t> report) override {
    return device_.OnFeatureReport(place_.interface_number, report);
  }
  DWORD OnOpen() override { return device_.OnOpen(); }
  void OnClose() override { device_.OnClose(); }

  CollectionAt place() const { return place_; }

 private:
  Device& device_;
  const UsbShape& shape_;
  const CollectionAt place_;
  const std::wstring path_;
};

class PortablePort final : public Port {
 public:
  void Attach(Device& device, const UsbShape& shape) override {
    attached_ = &shape;
    Collections& collections = collections_[&shape];
    if (collections.empty()) {
      for (const CollectionAt place : PlacesOf(shape))
        collections.push_back(std::make_unique<PluggedCollection>(device, shape, place));
    }
    for (const auto& collection : collections)
      platform::Bus().Plug(*collection);
    platform::Bus().BroadcastUsbChange(UsbPath(shape), true);
  }

  void Detach() override {
    for (const auto& collection : collections_[attached_])
      platform::Bus().Unplug(*collection);
    platform::Bus().BroadcastUsbChange(UsbPath(*attached_), false);
  }

  void SendInput(CollectionAt from, std::span<const uint8_t> report) override {
    for (const auto& collection : collections_[attached_]) {
      if (collection->place() == from) platform::Bus().Deliver(*collection, report);
    }
  }

 private:
  using Collections = std::vector<std::unique_ptr<PluggedCollection>>;

  const UsbShape* attached_ = nullptr;
  // Of every shape so far. They stay: it may be in a write to one that the device is detached.
  std::map<const UsbShape*, Collections> collections_;
};

}  // namespace

World& PlatformWorld() {
  static World* const world = new TheWorld;
  return *world;
}

PortableDevice::PortableDevice(DeviceOptions options)
    : Device(std::move(options), PlatformWorld(), std::make_unique<PortablePort>()) {}

std::wstring PortableDevice::CommandPath() const {
  const UsbShape& normal = shape(Mode::kNormal);
  return HidPath(normal, normal.output);
}

std::string PortableDevice::CommandPathNarrow() const {
  std::string narrow;
  for (wchar_t unit : CommandPath())
    narrow += static_cast<char>(unit);
  return narrow;
}

std::wstring PortableDevice::BootInputPath() const {
  const UsbShape& boot = shape(Mode::kBoot);
  return HidPath(boot, boot.input);
}

std::wstring PortableDevice::BootOutputPath() const {
  const UsbShape& boot = shape(Mode::kBoot);
  return HidPath(boot, boot.output);
}

std::vector<std::wstring> PortableDevice::Paths() const {
  const auto guard = Lock();
  std::vector<std::wstring> paths;
  if (mode() != Mode::kNormal && mode() != Mode::kBoot) return paths;
  const UsbShape& present = shape(mode());
  for (const CollectionAt place : PlacesOf(present))
    paths.push_back(HidPath(present, place));
  return paths;
}

}  // namespace perilink::sim
