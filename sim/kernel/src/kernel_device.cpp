#include "sim/kernel_device.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "sim/usb_device.h"

namespace perilink::sim {
namespace {

// The Windows error with which a device holds a write.
constexpr uint32_t kIoPending = 997;

UsbDevice::Answer Hand(Device& device, const InterfaceShape& shape, size_t number,
                       UsbDevice::Type type, const Bytes& report) {
  const Bytes bytes = shape.FromWire(report);
  const uint32_t error = type == UsbDevice::Type::kFeature ? device.OnFeatureReport(number, bytes)
                                                           : device.OnOutputReport(number, bytes);
  if (error == kIoPending) return UsbDevice::Answer::kHold;
  return error == 0 ? UsbDevice::Answer::kTake : UsbDevice::Answer::kStall;
}

// Does one thing after another on a thread of its own. What is still to be done when it is
// destroyed is done first.
class Worker {
 public:
  Worker() : thread_([this] { Work(); }) {}
  ~Worker() {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    changed_.notify_one();
    thread_.join();
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  void Do(std::function<void()> action) {
    const std::lock_guard lock(mutex_);
    actions_.push_back(std::move(action));
    changed_.notify_one();
  }

 private:
  void Work() {
    std::unique_lock lock(mutex_);
    for (;;) {
      changed_.wait(lock, [this] { return ending_ || !actions_.empty(); });
      if (actions_.empty()) return;
      const std::function<void()> action = std::move(actions_.front());
      actions_.pop_front();
      lock.unlock();
      action();
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> actions_;
  bool ending_ = false;
  std::thread thread_;
};

class KernelPort final : public Port {
 public:
  explicit KernelPort(int port) : port_(port) {}

  void Attach(Device& device, const UsbShape& shape) override {
    shape_ = &shape;
    std::vector<UsbInterface> interfaces;
    for (const InterfaceShape& one : shape.interfaces) {
      // A device has an OUT endpoint or none: both kinds are there.
      interfaces.push_back({one.ReportDescriptor(), !one.HasIds()});
    }
    attached_ = std::make_shared<UsbDevice>(
        UsbIdentity{shape.vendor_id, shape.product_id, shape.version, port_}, std::move(interfaces),
        [&device, &shape](size_t number, UsbDevice::Type type, const Bytes& report) {
          return Hand(device, shape.interfaces.at(number), number, type, report);
        });
    worker_.Do([usb = attached_] { usb->Plug(); });
  }

  void Detach() override {
    attached_->PullOut();
    worker_.Do([usb = std::exchange(attached_, nullptr)] { usb->Unplug(); });
  }

  void SendInput(CollectionAt from, std::span<const uint8_t> report) override {
    const std::span<const uint8_t> wire =
        shape_->interfaces.at(from.interface_number).OnWire(report);
    attached_->Send(from.interface_number, {wire.begin(), wire.end()});
  }

 private:
  const int port_;
  const UsbShape* shape_ = nullptr;  // with the world locked, as the next one
  std::shared_ptr<UsbDevice> attached_;
  Worker worker_;  // waits for the kernel, and for a device's own thread
};

}  // namespace

KernelDevice::KernelDevice(DeviceOptions options, int port)
    : Device(std::move(options), OwnWorld::world, std::make_unique<KernelPort>(port)) {}

}  // namespace perilink::sim
