// The machine that the tests run in, and a device in it that is all theirs.
#ifndef PERILINK_TESTS_KERNEL_MACHINE_H_
#define PERILINK_TESTS_KERNEL_MACHINE_H_

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <set>
#include <thread>
#include <utility>

#include "scenarios/scenario.h"
#include "sim/usb_device.h"
#include "support/report_descriptors.h"
#include "transport/link.h"

namespace perilink::testing {

using sim::UsbDevice;
using std::chrono::milliseconds;
using std::this_thread::sleep_for;
using Clock = std::chrono::steady_clock;

// Of the collections that are used, in their paths.
inline constexpr wchar_t kEventKey[] = L"mi_01&col04#";
inline constexpr wchar_t kCommandKey[] = L"mi_01&col05#";
inline constexpr wchar_t kBootKey[] = L"mi_02#";

inline milliseconds Since(Clock::time_point start) {
  return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

// Device files of the nodes that are present, in the order of their interfaces: each gets the least
// free number.
inline std::vector<std::string> Nodes() {
  std::error_code none;
  std::set<std::string> nodes;
  for (const auto& entry : std::filesystem::directory_iterator("/sys/class/hidraw", none)) {
    const std::string node = "/dev/" + entry.path().filename().string();
    if (access(node.c_str(), F_OK) == 0) nodes.insert(node);  // it comes after its entry
  }
  return {nodes.begin(), nodes.end()};
}

// With the device lock held, too.
inline bool WaitForNodes(size_t count) {
  const auto start = Clock::now();
  while (Nodes().size() != count && Since(start) < milliseconds(kPatienceMs))
    sleep_for(milliseconds(2));
  return Nodes().size() == count;
}

inline size_t OpenDescriptors(const std::string& node) {
  std::error_code gone;
  return static_cast<size_t>(std::count_if(
      std::filesystem::directory_iterator("/proc/self/fd"), {}, [&](const auto& entry) {
        return std::filesystem::read_symlink(entry.path(), gone) == node;
      }));
}

inline std::wstring PathWith(const std::wstring& key) {
  Paths paths;
  UsbFinder_FindHidDevicesByKey(key, paths);
  return paths.empty() ? L"" : paths.front();
}
inline bool WaitForPaths(size_t count) {
  return Eventually([count] { return Present().size() == count; });
}

inline void WriteText(const std::string& file, const std::string& text) {
  const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  [[maybe_unused]] const ssize_t count = write(fd, text.data(), text.size());
  close(fd);
}

// The thread, and those that it makes meanwhile, are an ordinary user's.
class AsNobody {
 public:
  AsNobody() { Become(65534); }
  ~AsNobody() { Become(0); }
  AsNobody(const AsNobody&) = delete;
  AsNobody& operator=(const AsNobody&) = delete;

 private:
  // Effective ids, of this thread alone: the C library would change those of all.
  static void Become(int id) {
    EXPECT_EQ(syscall(SYS_setresuid, -1, 0, -1), 0);
    EXPECT_EQ(syscall(SYS_setresgid, -1, id, -1), 0);
    EXPECT_EQ(syscall(SYS_setresuid, -1, id, -1), 0);
  }
};

inline Bytes Padded(Bytes report, size_t length) {
  report.resize(length);
  return report;
}

// A path that is open, as the library's own users have it open.
class Handle : public Link {
 public:
  explicit Handle(const std::wstring& path, size_t length = 17) : Link(length) { Open(path); }
  bool IsOpen() const { return handles().CanWrite() && handles().CanRead(); }
  // Empty when no report comes in time.
  Bytes Read(uint32_t time_ms = kPatienceMs) {
    if (Next(time_ms) != Arrival::kReport) return {};
    return {report().begin(), report().end()};
  }
  // 0, or the error.
  DWORD Send(const Bytes& report, bool feature = false) const {
    const bool sent = feature ? handles().SendFeature(report) : Write(report);
    return sent ? 0 : GetLastError();
  }
  bool HasGone() {
    return Eventually([this] { return Next(100) != Arrival::kReport && !Write(Bytes{8}); }) &&
           GetLastError() == ERROR_DEVICE_NOT_CONNECTED;
  }
};

// What the library tells this thread of devices that come and go. One at a time.
class Notices {
 public:
  explicit Notices(std::function<void()> on_arrival = {}) {
    StartUsbChanged(
        [](bool arrived) {
          if (arrived && on_arrival_) on_arrival_();
          come_.push_back(arrived);
        },
        0);
    come_.clear();  // the first call told of nothing
    on_arrival_ = std::move(on_arrival);
  }
  ~Notices() { StopUsbChanged(); }
  Notices(const Notices&) = delete;
  Notices& operator=(const Notices&) = delete;

  // Whether one of that kind comes in time; those before it are passed over.
  bool Await(
      bool arrived, const std::function<void()>& meanwhile = [] {}) {
    return Eventually([&] {
      meanwhile();
      MSG message{};
      PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE);
      while (!come_.empty() && come_.front() != arrived)
        come_.pop_front();
      if (come_.empty()) return false;
      come_.pop_front();
      return true;
    });
  }

 private:
  static inline std::function<void()> on_arrival_;
  static inline std::deque<bool> come_;
};

// A machine with no device of other tests, and one to plug in: boot mouse, commands, boot loader,
// an interface each.
class Machine : public ::testing::Test {
 protected:
  enum Interface : size_t { kPointer, kCommands, kBoot };
  struct Received {
    size_t interface_number;
    UsbDevice::Type type;
    Bytes report;
    bool operator==(const Received&) const = default;
  };

  void SetUp() override {
    ASSERT_TRUE(WaitForNodes(0));
    ASSERT_EQ(std::system("udevadm settle"), 0);
  }
  // Ends when the kernel shows it.
  void Plug() {
    device_.Plug();
    ASSERT_TRUE(WaitForNodes(3));
  }
  void Unplug() {
    device_.Unplug();
    ASSERT_TRUE(WaitForNodes(0));
  }
  std::vector<Received> TakeReceived() {
    const std::lock_guard lock(mutex_);
    return std::exchange(received_, {});
  }

  std::mutex mutex_;
  std::vector<Received> received_;
  std::atomic<UsbDevice::Answer> answer_{UsbDevice::Answer::kTake};
  UsbDevice device_{{},
                    {{kMouseDescriptor}, {kCommandDescriptor}, {kBootDescriptor, true}},
                    [this](size_t number, UsbDevice::Type type, const Bytes& report) {
                      const std::lock_guard lock(mutex_);
                      received_.push_back({number, type, report});
                      return answer_.load();
                    }};
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_KERNEL_MACHINE_H_
