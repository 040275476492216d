#include "sim/mouse.h"

#include <utility>

namespace perilink::sim {

Mouse::Mouse(DeviceOptions options) : Device(std::move(options)) {}

DeviceOptions Mouse::Options() {
  return {};
}

}  // namespace perilink::sim
