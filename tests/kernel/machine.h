// The machine that the tests run in, seen past the library: its nodes, and a wait that ends.
#ifndef PERILINK_TESTS_KERNEL_MACHINE_H_
#define PERILINK_TESTS_KERNEL_MACHINE_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
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

// Runs in a process of its own, where the library starts anew; its result is the exit status.
inline int InChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_KERNEL_MACHINE_H_
