// Lists and byte blocks in the forms that the narrow and the managed families return.
//
// None of these throws. If memory runs out, all is released again and the result is null.
#ifndef PERILINK_SRC_INTEROP_RETURNED_LISTS_H_
#define PERILINK_SRC_INTEROP_RETURNED_LISTS_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/ansi_text.h"
#include "platform/guard.h"
#include "platform/win32.h"

namespace perilink {

// A narrow device path as the wide exports take it. When memory runs out it is empty: no device
// has that path, so the wide export fails at once, in its own documented way.
inline std::wstring WidePath(const char* path) noexcept {
  return Guarded(std::wstring(), [&] { return NarrowToWide(path); });
}

// An array of `*count` narrow strings, array and strings from malloc, for UsbFinderC_Free. Null
// and a count of 0 when memory runs out; an empty list makes an array of no bytes.
char** ToNarrowArray(const std::vector<std::wstring>& list, uint32_t* count) noexcept;

// A one-dimensional SAFEARRAY of BSTR, lower bound 0, that the caller destroys.
SAFEARRAY* ToBstrArray(const std::vector<std::wstring>& list) noexcept;

// A one-dimensional SAFEARRAY of VT_UI1, lower bound 0, that the caller destroys.
SAFEARRAY* ToByteArray(std::span<const uint8_t> bytes) noexcept;

// What a narrow or managed list export is made of: `find` returns the list and may throw.
template <typename Find>
char** NarrowListFrom(uint32_t* count, Find find) noexcept {
  *count = 0;
  return Guarded<char**>(nullptr, [&] { return ToNarrowArray(find(), count); });
}
template <typename Find>
SAFEARRAY* BstrArrayFrom(Find find) noexcept {
  return Guarded<SAFEARRAY*>(nullptr, [&] { return ToBstrArray(find()); });
}

}  // namespace perilink

#endif  // PERILINK_SRC_INTEROP_RETURNED_LISTS_H_
