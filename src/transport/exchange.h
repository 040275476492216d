// The synchronous exchange of one frame with a device.
#ifndef PERILINK_SRC_TRANSPORT_EXCHANGE_H_
#define PERILINK_SRC_TRANSPORT_EXCHANGE_H_

#include <cstdint>
#include <string>

#include "perilink/records.h"

namespace perilink {

// The library's own commands are written up to three times and wait 100 ms after each write.
inline constexpr int32_t kExchangeRetries = 2;
inline constexpr int32_t kExchangeTimeoutMs = 100;

// Writes the request up to retries + 1 times and waits after each write up to timeout_ms for a
// reply with a right checksum and the request's command; any other report costs the try. Opens and
// closes a link of its own. On false the reply is all zero. With retries below 0 nothing is
// written.
//
// Reads of the device's memory share their command with all others, so here an answer that names
// another address is passed over, without costing the try. One that names none (0) is taken if the
// try ends without a better one.
bool ExchangeFrame(const std::wstring& path, const CommandFrame& request, CommandFrame& reply,
                   int32_t retries = kExchangeRetries, int32_t timeout_ms = kExchangeTimeoutMs);

}  // namespace perilink

#endif  // PERILINK_SRC_TRANSPORT_EXCHANGE_H_
