// A host that talks to virtual devices through the bus alone: no library code between.
#ifndef PERILINK_TESTS_SIM_RAW_HOST_H_
#define PERILINK_TESTS_SIM_RAW_HOST_H_

#include <memory>
#include <string>
#include <vector>

#include "perilink_platform/handle.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "sim/device_guard.h"
#include "sim/report.h"

namespace perilink::sim {

class RawHost : public platform::HidInputSink {
 public:
  explicit RawHost(const std::wstring& path) {
    const DeviceGuard guard;
    open_error = platform::Bus().Open(path, *this, connection_);
  }
  ~RawHost() override {
    const DeviceGuard guard;
    connection_.reset();
  }

  void OnInputReport(std::span<const uint8_t> report) override {
    arrived.emplace_back(report.begin(), report.end());
  }
  void OnRemoved() override { removed = true; }

  DWORD Write(std::span<const uint8_t> report) {
    const DeviceGuard guard;
    return connection_ ? connection_->WriteOutputReport(report) : ~0u;
  }

  // Writes a request and waits; what came back meanwhile stands in `arrived`.
  size_t Exchange(std::span<const uint8_t> request, DWORD wait_ms = 10) {
    arrived.clear();
    Write(request);
    Sleep(wait_ms);
    return arrived.size();
  }
  // The one reply to a request; empty when there was none, or more than one.
  Bytes Ask(uint8_t command, uint8_t length_byte = 0, Bytes payload = {}, uint16_t address = 0) {
    if (Exchange(MakeFrame(command, length_byte, payload, address)) != 1) return {};
    return arrived[0];
  }

  DWORD open_error = 0;
  bool removed = false;
  std::vector<Bytes> arrived;

 private:
  std::unique_ptr<platform::HidConnection> connection_;
};

}  // namespace perilink::sim

#endif  // PERILINK_TESTS_SIM_RAW_HOST_H_
