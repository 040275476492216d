// Plugs a virtual mouse into the kernel, runs a command, and takes the mouse away again:
//   kernel_mouse COMMAND...
// The exit status is the command's. Needs what the tests need: scripts/vm.sh.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "kernel_port.h"
#include "machine.h"

int main(int argc, char** argv) {
  using namespace perilink::testing;
  if (argc < 2) {
    std::fputs("usage: kernel_mouse COMMAND...\n", stderr);
    return 2;
  }
  KernelDevice mouse;
  mouse->Plug();
  if (!WaitForNodes(2)) return 125;
  // The device manager has seen to the nodes' permissions.
  [[maybe_unused]] const int settled = std::system("udevadm settle");
  const pid_t child = fork();
  if (child == 0) {
    execvp(argv[1], argv + 1);
    std::perror(argv[1]);
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  mouse->Unplug();
  return WIFEXITED(status) ? WEXITSTATUS(status) : 125;
}
