// Commands that the server sends when their turn comes.
#ifndef PERILINK_SRC_SERVER_QUEUED_COMMANDS_H_
#define PERILINK_SRC_SERVER_QUEUED_COMMANDS_H_

#include <cstdint>
#include <span>
#include <string>

#include "perilink/records.h"

namespace perilink {

// Builds one frame and queues it as a request of its own.
void QueueCommand(uint8_t command, uint8_t declared_length, std::span<const uint8_t> payload = {});

// The commands that only managed hosts have.
void QueueSetRgbBarMode(const RgbBarMode& record);
void QueueGetRgbBarMode();

// The device's descriptor string: up to 30 bytes in the system's code page, in chunks of ten.
void QueueDescriptorString(const std::wstring& text);

}  // namespace perilink

#endif  // PERILINK_SRC_SERVER_QUEUED_COMMANDS_H_
