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
// All reads of the device's memory have one command. So an answer to one that names another address
// is passed over and does not cost the try. An answer that names none (0), as a device gives that
// echoes no address, is taken at the try's end, unless the device has been seen to name addresses;
// until then every other report is passed over.
bool ExchangeFrame(const std::wstring& path, const CommandFrame& request, CommandFrame& reply,
                   int32_t retries = kExchangeRetries, int32_t timeout_ms = kExchangeTimeoutMs);

}  // namespace perilink

#endif  // PERILINK_SRC_TRANSPORT_EXCHANGE_H_
