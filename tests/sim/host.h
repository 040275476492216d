// A host with nothing but a virtual device's own port before it; it moves the device's time by
// hand.
#ifndef PERILINK_TESTS_SIM_HOST_H_
#define PERILINK_TESTS_SIM_HOST_H_

#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "sim/device.h"

namespace perilink::sim {

struct Host : World {
  Host() { mouse.Plug(); }

  uint64_t NowMicros() const override { return now_micros; }
  void Schedule(uint64_t at_micros, std::function<void()> action) override {
    events.emplace(at_micros, std::move(action));
  }
  void lock() override {}
  void unlock() override {}

  void Wait(uint64_t ms) {
    const uint64_t end = now_micros + ms * 1000;
    while (!events.empty() && events.begin()->first <= end) {
      const auto event = events.extract(events.begin());
      now_micros = event.key();
      event.mapped()();
    }
    now_micros = end;
  }

  uint32_t Write(std::span<const uint8_t> request) { return mouse.OnOutputReport(1, request); }
  // Writes a request and waits; what came back meanwhile stands in `arrived`.
  size_t Exchange(std::span<const uint8_t> request, uint64_t wait_ms = 10) {
    arrived.clear();
    Write(request);
    Wait(wait_ms);
    return arrived.size();
  }
  // The one reply to a request; empty when there was none, or more than one.
  Bytes Ask(uint8_t command, uint8_t length_byte = 0, Bytes payload = {}, uint16_t address = 0) {
    if (Exchange(MakeFrame(command, length_byte, payload, address)) != 1) return {};
    return arrived[0];
  }

  struct HostPort final : Port {
    explicit HostPort(Host& owner) : host(owner) {}
    void Attach(Device&, const UsbShape& shape) override { host.attached = &shape; }
    void Detach() override { host.attached = nullptr; }
    void SendInput(CollectionAt, std::span<const uint8_t> report) override {
      host.arrived.emplace_back(report.begin(), report.end());
    }
    Host& host;
  };

  uint64_t now_micros = 0;
  std::multimap<uint64_t, std::function<void()>> events;
  const UsbShape* attached = nullptr;
  std::vector<Bytes> arrived;
  Device mouse{MouseOptions(), *this, std::make_unique<HostPort>(*this)};
};

}  // namespace perilink::sim

#endif  // PERILINK_TESTS_SIM_HOST_H_
