// A virtual mouse on the bus at hand, and what a host of the library sees of it.
#ifndef PERILINK_TESTS_SCENARIOS_SCENARIO_H_
#define PERILINK_TESTS_SCENARIOS_SCENARIO_H_

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "bus.h"
#include "perilink/perilink.h"
#include "platform/win32.h"
#include "support/interop_values.h"

namespace perilink::testing {

using sim::Bytes;
using Paths = std::vector<std::wstring>;

// A machine may be emulated, and shared: what takes a millisecond elsewhere may take a second.
inline constexpr uint32_t kPatienceMs = 60'000;

// Whether it holds within the time.
inline bool Eventually(const std::function<bool()>& holds, uint32_t time_ms = kPatienceMs) {
  const uint64_t end_ms = GetTickCount64() + time_ms;
  while (!holds()) {
    if (GetTickCount64() > end_ms) return false;
    Sleep(2);
  }
  return true;
}

inline std::string Narrow(const std::wstring& text) {
  std::string narrow;
  for (const wchar_t unit : text)
    narrow += static_cast<char>(unit);
  return narrow;
}

inline Paths Find(const std::string& key) {
  Paths paths;
  UsbFinder_FindHidDevicesByKey({key.begin(), key.end()}, paths);
  return paths;
}
// Of the virtual devices' vendor, in whichever mode they are.
inline Paths Present() {
  return Find("vid_1234");
}

// Where the device takes commands; empty when it doesn't.
inline std::wstring PathOf(const sim::Device& device) {
  const Paths found = Find(device.CommandKey());
  return found.empty() ? L"" : found.front();
}

inline bool IsComplete(const sim::Device& device) {
  const sim::UsbShape& shape = device.shape(device.mode());
  for (size_t i = 0; i < shape.interfaces.size(); ++i) {
    for (size_t k = 0; k < shape.interfaces[i].collections.size(); ++k) {
      if (Find(shape.Key({i, k})).empty()) return false;
    }
  }
  return true;
}

inline Bytes FlashOf(sim::Device& device, size_t address = 0,
                     size_t count = PERILINK_FLASH_IMAGE_SIZE) {
  const auto lock = device.Lock();
  const auto bytes = device.flash().bytes().subspan(address, count);
  return {bytes.begin(), bytes.end()};
}

class Scenario : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(Eventually([] { return Present().empty(); })) << "of the test before";
    Plug(mouse);
  }
  // The library ends before the device does.
  void TearDown() override {
    UsbServer_Exit();
    UsbReaderWriterServer();
    Unplug();
  }

  // Ends when all of it is there and takes commands.
  static void Plug(sim::Device& device) {
    device.Plug();
    ASSERT_TRUE(Eventually([&] {
      const bool opens =
          IsComplete(device) && UsbFinderC_OpenDevice(Narrow(PathOf(device)).c_str());
      UsbFinderC_CloseDevice();
      return opens;
    })) << ::testing::PrintToString(Present());
  }
  void Unplug() {
    mouse.Unplug();
    ASSERT_TRUE(Eventually([] { return Present().empty(); }));
  }
  std::wstring Path() const { return PathOf(mouse); }
  std::string NarrowPath() const { return Narrow(Path()); }

  // ---- The server, and what it reports -------------------------------------------------------

  static void StartServer(const std::wstring& path) {
    const uintptr_t thread = UsbServer_Start(path, path, OnReport);
    if (thread != 0) CloseHandle(reinterpret_cast<HANDLE>(thread));
  }
  static void PERILINK_CALL OnReport(const uint8_t* frame, uint32_t, const uint8_t* data,
                                     uint32_t length) {
    const std::lock_guard lock(reports_mutex_);
    reports_.push_back({frame[1], {data, data + length}});
  }
  // The data of the next report of the command with so many bytes, others are passed over; none if
  // it doesn't come in time.
  static Bytes AwaitReport(uint8_t command, size_t length, uint32_t time_ms = kPatienceMs) {
    Bytes found;
    Eventually(
        [&] {
          const std::lock_guard lock(reports_mutex_);
          for (; !reports_.empty() && found.empty(); reports_.pop_front()) {
            if (reports_.front().command == command && reports_.front().data.size() == length)
              found = reports_.front().data;
          }
          return !found.empty();
        },
        time_ms);
    return found;
  }

 private:
  struct Report {
    uint8_t command;
    Bytes data;
  };
  static inline std::mutex reports_mutex_;
  static inline std::deque<Report> reports_;
  const std::unique_ptr<sim::Device> mouse_ = NewDevice();

 protected:
  sim::Device& mouse = *mouse_;
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SCENARIOS_SCENARIO_H_
