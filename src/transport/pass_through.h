// The raw pass-through: one device, open for the whole process, whose reports travel as they are.
#ifndef PERILINK_SRC_TRANSPORT_PASS_THROUGH_H_
#define PERILINK_SRC_TRANSPORT_PASS_THROUGH_H_

#include <cstdint>
#include <span>
#include <string>

namespace perilink {

// Stores a write and a read handle on the path, valid or not, in place of those stored before. True
// when both are valid.
bool OpenRawDevice(const std::wstring& path);

// Closes and forgets the stored pair.
void CloseRawDevice();

// One write of the whole report on the stored pair.
bool WriteRaw(std::span<const uint8_t> report);

// Writes the request and takes the first report that comes, up to two writes and 200 ms after each.
// `reply` is as long as the request, at most 255 bytes, and may be the request's own memory; it
// holds zeros on false.
bool ExchangeRaw(std::span<const uint8_t> request, std::span<uint8_t> reply);

}  // namespace perilink

#endif  // PERILINK_SRC_TRANSPORT_PASS_THROUGH_H_
