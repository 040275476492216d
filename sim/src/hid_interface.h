// One HID interface of a virtual device: its path and report sizes; the device does the rest.
#ifndef PERILINK_SIM_HID_INTERFACE_H_
#define PERILINK_SIM_HID_INTERFACE_H_

#include <functional>
#include <string>

#include "perilink_platform/hid_bus.h"

namespace perilink::sim {

struct InterfaceShape {
  uint16_t vendor_id;
  uint16_t product_id;
  uint16_t version;
  int interface_number;  // negative: the path names none
  int collection;        // 0: the path names none
  std::string instance;  // tells devices of one kind apart
  size_t input_length;
  size_t output_length;
  size_t feature_length;
};

// The part of the path that a host looks for, as in "vid_1234&pid_abcd&mi_01&col05".
std::string InterfaceKey(const InterfaceShape& shape);

// What the device hears of an interface.
class InterfaceOwner {
 public:
  virtual DWORD OnReport(std::span<const uint8_t> report, bool feature) = 0;
  virtual DWORD OnInterfaceOpen() = 0;
  virtual void OnInterfaceClose() = 0;

 protected:
  ~InterfaceOwner() = default;
};

class HidInterface : public platform::VirtualHidInterface {
 public:
  HidInterface(InterfaceShape shape, InterfaceOwner& owner);

  std::wstring Path() const override { return path_; }
  platform::HidAttributes Attributes() const override;
  size_t InputReportLength() const override { return shape_.input_length; }
  size_t OutputReportLength() const override { return shape_.output_length; }
  size_t FeatureReportLength() const override { return shape_.feature_length; }
  DWORD OnOutputReport(std::span<const uint8_t> report) override;
  DWORD OnFeatureReport(std::span<const uint8_t> report) override;
  DWORD OnOpen() override { return owner_.OnInterfaceOpen(); }
  void OnClose() override { owner_.OnInterfaceClose(); }

  std::string Key() const { return InterfaceKey(shape_); }

 private:
  InterfaceShape shape_;
  InterfaceOwner& owner_;
  std::wstring path_;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_HID_INTERFACE_H_
