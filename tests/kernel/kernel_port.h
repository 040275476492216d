// Plugs the virtual devices into the kernel, each as a USB device.
#ifndef PERILINK_TESTS_KERNEL_KERNEL_PORT_H_
#define PERILINK_TESTS_KERNEL_KERNEL_PORT_H_

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "sim/device.h"
#include "sim/real_time_world.h"
#include "usb_device.h"

namespace perilink::testing {

class KernelPort final : public sim::Port {
 public:
  // Of the virtual host controller.
  explicit KernelPort(int port);
  ~KernelPort() override;

  void Attach(sim::Device& device, const sim::UsbShape& shape) override;
  void Detach() override;
  void SendInput(sim::CollectionAt from, std::span<const uint8_t> report) override;

 private:
  void Later(std::function<void()> action);
  void Work();

  const int port_;
  const sim::UsbShape* shape_ = nullptr;  // with the world locked, as the next one
  std::shared_ptr<UsbDevice> attached_;

  // What waits for the kernel, or for a device's thread, waits on a thread of its own.
  std::mutex mutex_;
  std::condition_variable added_;
  std::deque<std::function<void()>> actions_;
  bool ending_ = false;
  std::thread worker_;
};

// A virtual device that the kernel sees. The library in the same process finds it on the machine's
// bus, like any other.
class KernelDevice {
 public:
  explicit KernelDevice(sim::DeviceOptions options = sim::MouseOptions(), int port = 0)
      : device_(std::move(options), world_, std::make_unique<KernelPort>(port)) {}
  sim::Device* operator->() { return &device_; }
  sim::Device& operator*() { return device_; }

 private:
  sim::RealTimeWorld world_;
  sim::Device device_;
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_KERNEL_KERNEL_PORT_H_
