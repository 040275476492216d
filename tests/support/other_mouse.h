// A second virtual mouse, of a kind of its own: an upgrade finds it beside the first in either
// mode.
#ifndef PERILINK_TESTS_SUPPORT_OTHER_MOUSE_H_
#define PERILINK_TESTS_SUPPORT_OTHER_MOUSE_H_

#include "sim/mouse.h"

namespace perilink::testing {

inline sim::DeviceOptions OtherMouse() {
  sim::DeviceOptions options = sim::Mouse::Options();
  options.product_id = 0x5678;
  options.boot.product_id = 0xB008;
  options.instance = "other";
  return options;
}

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SUPPORT_OTHER_MOUSE_H_
