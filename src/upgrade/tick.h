// The pace of an upgrade.
#ifndef PERILINK_SRC_UPGRADE_TICK_H_
#define PERILINK_SRC_UPGRADE_TICK_H_

#include "platform/win32.h"

namespace perilink {

// No wait of an upgrade without something to wait for sleeps longer.
inline constexpr DWORD kTickMs = 10;

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_TICK_H_
