#include "system.h"

namespace perictl {

std::string MissingPermission(const std::string&) {
  return "";
}

}  // namespace perictl
