// A host on Linux that tries itself out on a virtual mouse, which drops the first reply.
#include <perilink/perilink.h>

#include <cstdio>

#include "sim/mouse.h"

int main() {
  perilink::sim::Mouse mouse;
  mouse.Plug();
  mouse.faults().Drop(perilink::sim::Next(1));
  const int32_t version = UsbFinder_GetVersion(mouse.CommandPath());
  std::printf("version %04x after %zu requests\n", static_cast<unsigned>(version),
              mouse.CountRequests(0x12));
  return version != 0 ? 0 : 1;
}
