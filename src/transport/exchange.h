// Opening a device path, and the synchronous exchange of one frame with the device behind it.
#ifndef PERILINK_SRC_TRANSPORT_EXCHANGE_H_
#define PERILINK_SRC_TRANSPORT_EXCHANGE_H_

#include <cstdint>
#include <string>

#include "perilink/records.h"
#include "platform/handles.h"

namespace perilink {

// Tries and patience of the library's own commands: three writes, 100 ms each.
inline constexpr int32_t kExchangeRetries = 2;
inline constexpr int32_t kExchangeTimeoutMs = 100;

// Both open a device path for reading and writing, shared; the names say how the library uses the
// handle. The result is not tested: it may be INVALID_HANDLE_VALUE.
HANDLE OpenHidWriteHandle(const std::wstring& path);  // synchronous
HANDLE OpenHidReadHandle(const std::wstring& path);   // overlapped

// Writes the request up to retries + 1 times and waits after each write up to timeout_ms for a
// reply with a right checksum and the request's command. Opens and closes its own handles. On
// false the reply is all zero. With retries below 0 nothing is written.
bool ExchangeFrame(const std::wstring& path, const CommandFrame& request, CommandFrame& reply,
                   int32_t retries = kExchangeRetries, int32_t timeout_ms = kExchangeTimeoutMs);

}  // namespace perilink

#endif  // PERILINK_SRC_TRANSPORT_EXCHANGE_H_
