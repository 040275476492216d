// From a configuration image to a record.
#ifndef PERILINK_SRC_PROTOCOL_PARSER_H_
#define PERILINK_SRC_PROTOCOL_PARSER_H_

#include <cstdint>

#include "perilink/records.h"

namespace perilink {

// The settings block alone: fills bytes 0 to 45 of the record from 233 bytes of an image.
void ParseSettings(const uint8_t* image, ProtocolData& record);

// The whole record from a whole image of 6960 bytes.
void ParseImage(const uint8_t* image, ProtocolData& record);

}  // namespace perilink

#endif  // PERILINK_SRC_PROTOCOL_PARSER_H_
