#include "active_bus.h"

#include <atomic>
#include <mutex>

#include "hidraw/hidraw_bus.h"
#include "perilink_platform/error.h"
#include "perilink_platform/world.h"

namespace perilink::platform {
namespace {

std::atomic<bool> machine_hidden{false};
std::atomic<HidrawBus*> machine_bus{nullptr};

// The machine's devices before those that the process has plugged in itself.
class BothBuses final : public HidBus {
 public:
  explicit BothBuses(HidrawBus& machine) : machine_(machine) {}

  std::vector<std::wstring> PresentInterfaces() override {
    std::vector<std::wstring> paths = machine_.PresentInterfaces();
    for (std::wstring& path : Bus().PresentInterfaces())
      paths.push_back(std::move(path));
    return paths;
  }

  DWORD Open(const std::wstring& path, DWORD access, HidInputSink& sink,
             std::unique_ptr<HidConnection>& connection) override {
    const DWORD error = machine_.Open(path, access, sink, connection);
    return error == ERROR_FILE_NOT_FOUND ? Bus().Open(path, access, sink, connection) : error;
  }

 private:
  HidrawBus& machine_;
};

// Null when it can't be started now. It lives as long as the process.
HidrawBus* MachineBus() {
  static std::mutex starting;
  if (machine_bus.load() == nullptr) {
    const std::lock_guard lock(starting);
    if (machine_bus.load() == nullptr) machine_bus = HidrawBus::Start();
  }
  return machine_bus;
}

}  // namespace

HidBus* ActiveBus() {
  if (IsVirtual() || machine_hidden) return &Bus();
  HidrawBus* const machine = MachineBus();
  if (machine == nullptr) return nullptr;
  static auto* const both = new BothBuses(*machine);
  return both;
}

bool MachineBusRuns() {
  return machine_bus.load() != nullptr;
}

void HideMachineDevices() {
  machine_hidden = true;
}

std::string HidNodeOf(const std::wstring& path) {
  HidrawBus* const machine = machine_bus.load();
  return machine == nullptr ? "" : machine->DeviceFileOf(path);
}

}  // namespace perilink::platform
