// A server on a scripted device, and what its host gets to see.
#ifndef PERILINK_TESTS_SERVER_SERVER_FIXTURE_H_
#define PERILINK_TESTS_SERVER_SERVER_FIXTURE_H_

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "battery/registry_fixture.h"
#include "perilink/battery.h"
#include "perilink/server.h"
#include "server/state.h"
#include "support/scripted_device.h"

namespace perilink::testing {

struct Callback {
  Report frame;
  Report data;
};

// Puts bytes at the end of a report.
template <typename Bytes>
Report& operator+=(Report& report, const Bytes& bytes) {
  report.insert(report.end(), bytes.begin(), bytes.end());
  return report;
}

inline Report BytesOf(const CommandFrame& frame) {
  const auto bytes = FrameBytes(frame);
  return Report(bytes.begin(), bytes.end());
}

// A valid reply whose length byte is the number of its data.
inline Report Answer(const Report& request, std::initializer_list<uint8_t> data) {
  Report reply = ReplyTo(request, data);
  reply[5] = static_cast<uint8_t>(data.size());
  return Closed(std::move(reply));
}

inline Report Event(uint8_t flags) {
  return Closed({8, PERILINK_COMMAND_EVENT, 0, 0, 0, 0, flags, 1, 2, 3, 4, 5, 6, 7, 8, 9});
}

// The optimiser is off unless a test switches it on; the idle server looks at its queue every
// millisecond.
class ServerTest : public RegistryTest {
 protected:
  ServerTest() {
    current_ = this;
    UsbServer_SetBatteryOptimizeEnable(0);
    CS_UsbServer_SetThreadSleepTime(1);
  }
  ~ServerTest() override {
    UsbServer_Exit();
    Sleep(10'000);
    EXPECT_EQ(platform::Bus().OpenConnections(), 0u);
    current_ = nullptr;
  }

  uintptr_t Start() {
    const uintptr_t thread = UsbServer_Start(device.Path(), device.Path(), &ServerTest::OnReport);
    Sleep(2);
    return thread;
  }

  // Gives the server up to ten minutes to report so often, and a moment more.
  void WaitForCallbacks(size_t count) {
    for (int i = 0; i < 6000 && callbacks.size() < count; ++i)
      Sleep(100);
    Sleep(200);
  }

  static void PERILINK_CALL OnReport(const uint8_t* frame, uint32_t frame_length,
                                     const uint8_t* data, uint32_t data_length) {
    EXPECT_EQ(frame_length, 17u);
    if (current_ == nullptr) return;
    current_->callbacks.push_back({{frame, frame + 17}, {data, data + data_length}});
    if (current_->on_callback) current_->on_callback(current_->callbacks.back());
  }

  // A script's last step: the device sends a report a millisecond later, and the write succeeds.
  static DWORD Tell(ScriptedDevice& self, Report report) {
    self.Deliver(std::move(report), 1);
    return 0;
  }
  // Answers everything with one byte.
  static DWORD AnswerAll(ScriptedDevice& self, const Report& written) {
    return Tell(self, Answer(written, {0x11}));
  }

  std::vector<int> WrittenCommands() const {
    std::vector<int> commands;
    for (const Written& written : device.writes())
      commands.push_back(written.report[1]);
    return commands;
  }
  std::vector<int> CallbackCommands() const {
    std::vector<int> commands;
    for (const Callback& callback : callbacks)
      commands.push_back(callback.frame[1]);
    return commands;
  }
  static std::vector<QueueEntry> QueuedEntries() {
    const ServerState::Queues queues = ServerState::Instance().LockQueues();
    std::vector<QueueEntry> entries;
    for (size_t i = 0; i < queues.commands.Size(); ++i)
      entries.push_back(queues.commands.At(i));
    return entries;
  }

  ScriptedDevice device{kScriptedPath, AnswerAll};
  std::vector<Callback> callbacks;
  std::function<void(const Callback&)> on_callback;

 private:
  static inline ServerTest* current_ = nullptr;
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SERVER_FIXTURE_H_
