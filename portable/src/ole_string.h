// Strings for the platform's own use: no call, so no fault either.
#ifndef PERILINK_PLATFORM_SRC_OLE_STRING_H_
#define PERILINK_PLATFORM_SRC_OLE_STRING_H_

#include <cstddef>

#include "perilink_platform/ole.h"

namespace perilink::platform {

// A string of `length` characters, zeros if `text` is null. Null without memory.
BSTR AllocateString(const OLECHAR* text, size_t length);

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_OLE_STRING_H_
