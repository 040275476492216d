// What the bus over hidraw is built on: how the kernel itself behaves. Where a new kernel differs,
// this tells before a user does.
#include <fcntl.h>
#include <linux/hidraw.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <atomic>
#include <cerrno>

#include "machine.h"

namespace perilink::testing {
namespace {

enum Interface : size_t { kPointer, kCommands, kBoot };

class Kernel : public ::testing::Test {
 protected:
  void SetUp() override {
    device_.Plug();
    ASSERT_TRUE(WaitForNodes(3));
  }
  void TearDown() override {
    device_.Unplug();
    EXPECT_TRUE(WaitForNodes(0));
  }

  static int Open(size_t interface_number, int flags = O_NONBLOCK) {
    return open(Nodes().at(interface_number).c_str(), O_RDWR | O_CLOEXEC | flags);
  }
  static Bytes Read(int fd, int timeout_ms = 10'000) {
    pollfd wait{fd, POLLIN, 0};
    Bytes report(4096);
    if (poll(&wait, 1, timeout_ms) <= 0) return {};
    const ssize_t count = read(fd, report.data(), report.size());
    report.resize(count < 0 ? 0 : static_cast<size_t>(count));
    return report;
  }
  static int Feature(int fd, Bytes report) {
    return ioctl(fd, HIDIOCSFEATURE(report.size()), report.data());
  }
  Bytes Received() {
    Eventually([this] { return received_count_ > 0; });
    const std::lock_guard lock(mutex_);
    received_count_ = 0;
    return received_;
  }

  std::atomic<UsbDevice::Answer> answer_{UsbDevice::Answer::kTake};
  std::mutex mutex_;
  Bytes received_;
  std::atomic<int> received_count_{0};
  UsbDevice device_{{}, MouseInterfaces(), [this](size_t, UsbDevice::Type, const Bytes& report) {
                      const std::lock_guard lock(mutex_);
                      received_ = report;
                      ++received_count_;
                      return answer_.load();
                    }};
};

TEST_F(Kernel, ChecksAndPadsNothing) {
  const int commands = Open(kCommands);
  const int boot = Open(kBoot);
  received_count_ = 0;
  for (const Bytes& report : {Bytes{8, 1, 2}, Bytes(17, 0x77)}) {
    EXPECT_EQ(write(commands, report.data(), report.size()), ssize_t(report.size()));
    EXPECT_EQ(Received(), report) << "too short, and of an unknown id";
  }
  const Bytes unnumbered = {0, 1, 2};
  EXPECT_EQ(write(boot, unnumbered.data(), 3), 3);
  EXPECT_EQ(Received(), (Bytes{1, 2})) << "the 0 is no part of the report";
  device_.Send(kBoot, Bytes(63, 0x5A));
  EXPECT_EQ(Read(boot), Bytes(63, 0x5A)) << "nor does it come back";
}

TEST_F(Kernel, DropsTheNewestOfMoreThan63Reports) {
  const int fd = Open(kCommands);
  Bytes report(17);
  report[0] = 8;
  for (; report[1] < 100; ++report[1])
    device_.Send(kCommands, report);
  std::this_thread::sleep_for(milliseconds(1500));
  std::vector<int> kept;
  for (Bytes read = Read(fd); !read.empty(); read = Read(fd, 300))
    kept.push_back(read[1]);
  ASSERT_EQ(kept.size(), 63u);
  EXPECT_EQ(kept.front(), 0);
  EXPECT_EQ(kept.back(), 62);
}

TEST_F(Kernel, TakesLongToOpenWhatNobodyHasOpen) {
  const auto time = [](int& fd) {
    const auto start = Clock::now();
    fd = Open(kBoot);
    return Since(start);
  };
  int first = -1;
  int more = -1;
  EXPECT_GE(time(first), milliseconds(50));
  milliseconds fastest = kPatience;
  for (int i = 0; i < 10; ++i) {
    fastest = std::min(fastest, time(more));
    close(more);
  }
  EXPECT_LT(fastest, milliseconds(40));
  close(first);
  EXPECT_GE(time(first), milliseconds(50));
}

TEST_F(Kernel, HoldsOpensWhileAWriteIsStuck) {
  const int boot = Open(kBoot);
  const int commands = Open(kCommands);
  answer_ = UsbDevice::Answer::kHold;
  milliseconds stuck{};
  int error = 0;
  std::thread writer([&] {
    const Bytes report(64);
    const auto start = Clock::now();
    error = write(boot, report.data(), report.size()) < 0 ? errno : 0;
    stuck = Since(start);
  });
  Received();
  const auto start = Clock::now();
  close(Open(kPointer));
  const milliseconds waited = Since(start);
  writer.join();
  EXPECT_EQ(error, ETIMEDOUT);
  EXPECT_GE(stuck, milliseconds(4900));
  EXPECT_GE(waited, milliseconds(2000)) << "of another node";
  close(commands);
}

TEST_F(Kernel, EndsNoReadOfAFileThatIsClosed) {
  const int fd = Open(kCommands, 0);
  std::atomic<bool> ended{false};
  std::thread reader([&] {
    Bytes report(64);
    [[maybe_unused]] const ssize_t count = read(fd, report.data(), report.size());
    ended = true;
  });
  std::this_thread::sleep_for(milliseconds(300));
  close(fd);
  std::this_thread::sleep_for(milliseconds(500));
  EXPECT_FALSE(ended);
  device_.Send(kCommands, Bytes(17, 8));
  reader.join();
}

TEST_F(Kernel, TellsAnUnplugByEveryCall) {
  const int fd = Open(kCommands);
  const int blocking = Open(kCommands, 0);
  std::atomic<int> ended_with{0};
  std::thread reader([&] {
    Bytes report(64);
    while (read(blocking, report.data(), report.size()) >= 0) {
    }
    ended_with = errno;
  });
  device_.Send(kCommands, Bytes(17, 8));
  ASSERT_EQ(Read(fd).size(), 17u);
  device_.Send(kCommands, Bytes(17, 8));
  std::this_thread::sleep_for(milliseconds(300));
  device_.Unplug();
  pollfd wait{fd, 0, 0};
  ASSERT_EQ(poll(&wait, 1, 10'000), 1);
  EXPECT_EQ(wait.revents & (POLLERR | POLLHUP), POLLERR | POLLHUP);
  reader.join();
  EXPECT_EQ(ended_with, EIO);
  Bytes report(17, 8);
  EXPECT_EQ(read(fd, report.data(), 17), 17) << "what was queued is still there";
  EXPECT_EQ(read(fd, report.data(), 17), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(write(fd, report.data(), 17), -1);
  EXPECT_EQ(errno, ENODEV);
  EXPECT_EQ(Feature(fd, report), -1);
  EXPECT_EQ(errno, ENODEV);
}

}  // namespace
}  // namespace perilink::testing
