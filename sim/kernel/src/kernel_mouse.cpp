// Plugs a virtual mouse into the kernel, runs a command, and takes the mouse away again:
//   kernel_mouse COMMAND...
// The exit status is the command's; 125 when the mouse can't be plugged in.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <thread>

#include "sim/kernel_device.h"
#include "sim/usb_device.h"

namespace {

constexpr int kNoMouse = 125;
constexpr std::chrono::seconds kPatience{20};

std::ptrdiff_t CountNodes() {
  std::error_code none;
  return std::distance(std::filesystem::directory_iterator("/sys/class/hidraw", none), {});
}

bool PlugIn(perilink::sim::Device& mouse) {
  const auto wanted =
      CountNodes() + std::ssize(mouse.shape(perilink::sim::Mode::kNormal).interfaces);
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  mouse.Plug();
  while (CountNodes() < wanted) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  // Until the device manager, where there is one, has set the nodes' permissions.
  [[maybe_unused]] const int settled = std::system("udevadm settle 2>&-");
  return true;
}

int Run(char** command) {
  const pid_t child = fork();
  if (child == 0) {
    execvp(command[0], command);
    std::perror(command[0]);
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : kNoMouse;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: kernel_mouse COMMAND...\n", stderr);
    return 2;
  }
  if (!perilink::sim::CanPlugIntoKernel()) {
    std::fputs(
        "kernel_mouse: no virtual USB host controller may be used here; "
        "scripts/vm.sh has a machine with one\n",
        stderr);
    return kNoMouse;
  }
  perilink::sim::KernelDevice mouse;
  if (!PlugIn(mouse)) {
    std::fputs("kernel_mouse: the kernel does not show the mouse\n", stderr);
    return kNoMouse;
  }
  return Run(argv + 1);
}
