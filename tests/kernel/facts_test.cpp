// What the bus over hidraw is built on: how the kernel itself behaves. Where a new kernel differs,
// this tells before a user does. (How it behaves while a write is stuck: bus_test.cpp; who may open
// a node when: arrival_test.cpp.)
#include <linux/hidraw.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <cerrno>

#include "machine.h"

namespace perilink::testing {
namespace {

class Kernel : public Machine {
 protected:
  void SetUp() override {
    Machine::SetUp();
    Plug();
  }
  static int Open(size_t interface_number, int flags = O_NONBLOCK) {
    return open(Nodes().at(interface_number).c_str(), O_RDWR | O_CLOEXEC | flags);
  }
  static Bytes Read(int fd, int timeout_ms = 10'000) {
    pollfd wait{fd, POLLIN, 0};
    Bytes report(4096);
    if (poll(&wait, 1, timeout_ms) <= 0) return {};
    report.resize(static_cast<size_t>(std::max<ssize_t>(read(fd, report.data(), 4096), 0)));
    return report;
  }
};

TEST_F(Kernel, ChecksAndPadsNothing) {
  const int commands = Open(kCommands);
  const int boot = Open(kBoot);
  const struct {
    int fd;
    Bytes written, received;
  } rows[] = {
      {commands, {8, 1, 2}, {8, 1, 2}},              // too short
      {commands, Bytes(17, 0x77), Bytes(17, 0x77)},  // of an unknown id
      {boot, {0, 1, 2}, {1, 2}},                     // the 0 is no part of the report
  };
  for (const auto& row : rows) {
    TakeReceived();
    EXPECT_EQ(write(row.fd, row.written.data(), row.written.size()), ssize_t(row.written.size()));
    EXPECT_EQ(TakeReceived().at(0).report, row.received);
  }
  device_.Send(kBoot, Bytes(63, 0x5A));
  EXPECT_EQ(Read(boot), Bytes(63, 0x5A)) << "nor does a 0 come back";
}

TEST_F(Kernel, DropsTheNewestOfMoreThan63Reports) {
  const int fd = Open(kCommands);
  for (uint8_t i = 0; i < 100; ++i)
    device_.Send(kCommands, Padded({8, i}, 17));
  sleep_for(milliseconds(1500));
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
  for (int round = 0; round < 2; ++round) {
    int first = -1;
    EXPECT_GE(time(first), milliseconds(50));
    EXPECT_TRUE(Eventually([&] {
      int second = -1;
      const bool fast = time(second) < milliseconds(40);
      close(second);
      return fast;
    }));
    close(first);
  }
}

TEST_F(Kernel, EndsNoReadOfAFileThatIsClosed) {
  const int fd = Open(kCommands, 0);
  std::atomic<bool> ended{false};
  std::thread reader([&] {
    Bytes report(64);
    [[maybe_unused]] const ssize_t count = read(fd, report.data(), report.size());
    ended = true;
  });
  sleep_for(milliseconds(200));
  close(fd);
  sleep_for(milliseconds(300));
  EXPECT_FALSE(ended);
  device_.Send(kCommands, Bytes(17, 8));
  reader.join();
}

TEST_F(Kernel, TellsAnUnplugByEveryCall) {
  const int fd = Open(kCommands);
  device_.Send(kCommands, Bytes(17, 8));
  ASSERT_EQ(Read(fd).size(), 17u);
  device_.Send(kCommands, Bytes(17, 8));
  sleep_for(milliseconds(300));
  device_.Unplug();
  pollfd wait{fd, 0, 0};
  ASSERT_EQ(poll(&wait, 1, 10'000), 1);
  EXPECT_EQ(wait.revents & (POLLERR | POLLHUP), POLLERR | POLLHUP);
  Bytes report(17, 8);
  EXPECT_EQ(read(fd, report.data(), 17), 17) << "what was queued is still there";
  EXPECT_EQ(read(fd, report.data(), 17), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(write(fd, report.data(), 17), -1);
  EXPECT_EQ(errno, ENODEV);
  EXPECT_EQ(ioctl(fd, HIDIOCSFEATURE(17), report.data()), -1);
  EXPECT_EQ(errno, ENODEV);
}

}  // namespace
}  // namespace perilink::testing
