// The managed names of the configuration's converters. What is one entry point under two names
// stands in exports.def.
#include "perilink/protocol_data.h"

extern "C" {

void CS_ProtocolDataParser(const uint8_t* image, ProtocolData* record) {
  ProtocolDataParser(image, record);
}

void CS_BufferToDPILed(const uint8_t* source, DPILed* led) {
  BufferToDPILed(source, led);
}

void CS_BufferToLedBar(const uint8_t* source, LedBar* bar) {
  BufferToLedBar(source, bar);
}

}  // extern "C"
