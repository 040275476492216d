// The class of HID interfaces.
#ifndef PERILINK_PLATFORM_SRC_HID_GUID_H_
#define PERILINK_PLATFORM_SRC_HID_GUID_H_

#include "perilink_platform/types.h"

namespace perilink::platform {

inline constexpr GUID kHidGuid = {
    0x4D1E55B2, 0xF16F, 0x11CF, {0x88, 0xCB, 0x00, 0x11, 0x11, 0x00, 0x00, 0x30}};

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_HID_GUID_H_
