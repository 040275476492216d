// A HID interface on the portable platform's bus whose behaviour its owner writes down: what it
// does with each report that the host writes, and what it has received so far. For a host's own
// tests: the answers that no device should give are a line each, where a Mouse or a Keyboard
// (device.h) answers as a device does.
//
//   ScriptedDevice device(kScriptedPath, [](ScriptedDevice& self, const Bytes& written) {
//     self.Deliver(ReplyTo(written, {0x01, 0x23}), 20);  // a reply, 20 ms later
//     return DWORD{0};                                   // the write succeeds
//   });
//
// Its functions take the device lock and may be called from any thread, in the real and in the
// virtual world. It must outlive every call of the library on its path that is under way.
#ifndef PERILINK_SIM_SCRIPTED_DEVICE_H_
#define PERILINK_SIM_SCRIPTED_DEVICE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "sim/report.h"

namespace perilink::sim {

// Where a host that looks for the command interface of vid_1234&pid_abcd finds one.
inline constexpr const wchar_t* kScriptedPath =
    L"\\\\?\\hid#vid_1234&pid_abcd&mi_01&col05#7&1c2d3e4f&0&0004#"
    L"{4d1e55b2-f16f-11cf-88cb-001111000030}";

// A valid reply to a request of at least 6 bytes: its bytes 0 to 5 with the status (byte 2) 0, and
// after them the given data, at most 10 bytes.
Bytes ReplyTo(const Bytes& request, std::initializer_list<uint8_t> data = {});

// A written report, with the milliseconds since the device was made.
struct Written {
  uint64_t at_ms;
  Bytes report;
};

class ScriptedDevice : public platform::VirtualHidInterface {
 public:
  // Returns 0 or the Windows error code that the write fails with. Runs on the writer's thread,
  // inside its WriteFile and under the device lock: it must not block. It may call every function
  // of its device.
  using Script = std::function<DWORD(ScriptedDevice&, const Bytes&)>;

  // Plugs itself in; without a script it takes every write and never answers. Its input, output and
  // feature reports are of the given length, report id included.
  explicit ScriptedDevice(std::wstring path = kScriptedPath, Script script = {},
                          size_t report_length = Frame{}.size());
  // Takes back what it has scheduled, and unplugs itself.
  ~ScriptedDevice() override;
  ScriptedDevice(const ScriptedDevice&) = delete;
  ScriptedDevice& operator=(const ScriptedDevice&) = delete;

  // Sends an input report after a delay; without one, before this call returns. While it is
  // unplugged, what it sends is lost.
  void Deliver(Bytes report, uint64_t delay_ms = 0);
  void Unplug();
  void Plug();
  // From the next write on.
  void SetScript(Script script);

  // The output and the feature reports that it has received, oldest first, refused ones included.
  std::vector<Written> writes() const;
  std::vector<Bytes> features() const;
  int opens() const;  // of its path, so far
  void ClearWrites();

  std::wstring Path() const override { return path_; }
  platform::HidAttributes Attributes() const override { return {0x1234, 0xABCD, 0x0100}; }
  size_t InputReportLength() const override { return report_length_; }
  size_t OutputReportLength() const override { return report_length_; }
  size_t FeatureReportLength() const override { return report_length_; }
  DWORD OnOutputReport(std::span<const uint8_t> report) override;
  DWORD OnFeatureReport(std::span<const uint8_t> report) override;
  DWORD OnOpen() override;

 private:
  const std::wstring path_;
  Script script_;
  const size_t report_length_;
  const uint64_t made_micros_ = platform::NowMicros();
  std::vector<Written> writes_;
  std::vector<Bytes> features_;
  std::vector<platform::EventId> scheduled_;
  int opens_ = 0;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_SCRIPTED_DEVICE_H_
