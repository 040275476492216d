// The pace of an upgrade.
#ifndef PERILINK_SRC_UPGRADE_TICK_H_
#define PERILINK_SRC_UPGRADE_TICK_H_

#include "platform/win32.h"

namespace perilink {

// The longest sleep of an upgrade that polls.
inline constexpr DWORD kTickMs = 10;

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_TICK_H_
