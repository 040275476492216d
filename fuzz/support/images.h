// Configuration images and records that an input describes in few bytes.
#ifndef PERILINK_FUZZ_SUPPORT_IMAGES_H_
#define PERILINK_FUZZ_SUPPORT_IMAGES_H_

#include "perilink/records.h"
#include "sim/flash_image.h"
#include "support/input.h"

namespace perilink::fuzz {

// A device's memory. One byte: bits 0 to 2 what it starts from, bit 3 whether check bytes are made
// right in the end, bits 4 to 7 the number of changes. Then for each change its address (2), its
// length and its bytes.
sim::FlashImage TakeImage(Input& input);

// A mouse's, without shortcuts and macros. Made once.
const sim::FlashImage& DefaultImage();

// Changes of a record up to the end of the input: offset (2), length, bytes.
void TakeChanges(Input& input, ProtocolData& record);

// Makes every check byte of the configuration right, where its slot has one.
void SealAll(sim::FlashImage& image);

// The part of the memory that the host reads as configuration.
ExactCopy Configuration(const sim::FlashImage& image);

ProtocolData Parse(const uint8_t* image, ProtocolData record = {});

}  // namespace perilink::fuzz

#endif  // PERILINK_FUZZ_SUPPORT_IMAGES_H_
