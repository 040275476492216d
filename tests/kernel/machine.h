// The machine that the tests run in, seen past the library: its nodes, and a wait that ends.
#ifndef PERILINK_TESTS_KERNEL_MACHINE_H_
#define PERILINK_TESTS_KERNEL_MACHINE_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/report_descriptors.h"
#include "usb_device.h"

namespace perilink::testing {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// The machine is emulated, and shared: what takes a millisecond elsewhere may take a second.
inline constexpr milliseconds kPatience{20'000};

inline milliseconds Since(Clock::time_point start) {
  return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

// Whether it holds within the time.
inline bool Eventually(const std::function<bool()>& holds, milliseconds time = kPatience) {
  const auto deadline = Clock::now() + time;
  while (!holds()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(milliseconds(2));
  }
  return true;
}

// Device files of the nodes that are present, by the number of their interface.
inline std::vector<std::string> Nodes() {
  std::error_code ignored;
  std::vector<std::pair<std::string, std::string>> found;
  for (const auto& entry : std::filesystem::directory_iterator("/sys/class/hidraw", ignored)) {
    const std::filesystem::path device =
        std::filesystem::canonical(entry.path() / "device", ignored);
    if (!ignored) found.emplace_back(device, "/dev/" + entry.path().filename().string());
  }
  std::sort(found.begin(), found.end());
  std::vector<std::string> names;
  for (const auto& [device, name] : found)
    names.push_back(name);
  return names;
}

inline bool WaitForNodes(size_t count) {
  return Eventually([count] { return Nodes().size() == count; });
}

// Boot mouse, commands, boot loader: one interface each.
inline std::vector<UsbInterface> MouseInterfaces() {
  return {{kMouseDescriptor}, {kCommandDescriptor}, {kBootDescriptor, true}};
}

// A process of its own, in which the library starts anew. Made before the test has threads. Both
// sides pass each other turns; who waits in vain for one ends after a while.
class Child {
 public:
  // The body begins with the first Go; it returns 0, or the line that failed.
  explicit Child(const std::function<int(Child&)>& body) {
    if (pipe(to_child_) != 0 || pipe(to_parent_) != 0) return;
    pid_ = fork();
    if (pid_ == 0) _exit(AwaitGo() && body(*this) == 0 ? 0 : 1);
    close(to_parent_[1]);
  }
  // The parent's.
  void Go() { Pass(to_child_[1]); }
  bool AwaitReady() { return Take(to_parent_[0]); }
  bool Ends() {
    int status = 0;
    waitpid(pid_, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }
  pid_t pid() const { return pid_; }
  // The child's.
  void Ready() { Pass(to_parent_[1]); }
  bool AwaitGo() { return Take(to_child_[0]); }

 private:
  static void Pass(int end) { [[maybe_unused]] const ssize_t count = write(end, "", 1); }
  static bool Take(int end) {
    pollfd wait{end, POLLIN, 0};
    char byte = 0;
    return poll(&wait, 1, static_cast<int>(2 * kPatience.count())) == 1 && read(end, &byte, 1) == 1;
  }

  int to_child_[2];
  int to_parent_[2];
  pid_t pid_ = 0;
};

// In a child's body: what must hold.
#define NEED(condition)                                                            \
  do {                                                                             \
    if (!(condition)) {                                                            \
      std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
      return __LINE__;                                                             \
    }                                                                              \
  } while (false)

inline void WriteText(const std::string& file, const std::string& text) {
  const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  [[maybe_unused]] const ssize_t count = write(fd, text.data(), text.size());
  close(fd);
}

// An ordinary user, who has no rights of his own.
inline void BecomeNobody() {
  constexpr uid_t kNobody = 65534;
  [[maybe_unused]] int left = setgid(kNobody);
  left = setuid(kNobody);
}

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_KERNEL_MACHINE_H_
