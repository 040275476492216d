// Loaded into a process, plugs in a virtual mouse with the default options.
#include "sim/mouse.h"

namespace perilink::sim {
namespace {

// Never destroyed: threads of the host or of the library may outlive main().
Mouse* PlugIn() {
  Mouse* const mouse = new Mouse;
  mouse->Plug();
  return mouse;
}
[[maybe_unused]] Mouse* const plugged_mouse = PlugIn();

}  // namespace
}  // namespace perilink::sim
