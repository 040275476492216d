// Why a device can't be opened, as far as its node tells.
#include <unistd.h>

#include <cerrno>

#include "perilink_platform/hid_bus.h"
#include "system.h"

namespace perictl {

std::string MissingPermission(const std::string& path) {
  const std::string node = perilink::platform::HidNodeOf({path.begin(), path.end()});
  if (node.empty() || access(node.c_str(), R_OK | W_OK) == 0 || errno != EACCES) return "";
  const std::string vendor = path.substr(path.find("vid_") + 4, 4);
  const std::string product = path.substr(path.find("pid_") + 4, 4);
  return "no permission for " + node + " (" + vendor + ":" + product +
         "): 'perictl udev-rule --vid " + vendor + "' says how to get it";
}

}  // namespace perictl
