// The steps of an input of the server loop's target, beside the host's.
#ifndef PERILINK_FUZZ_SUPPORT_LOOP_STEPS_H_
#define PERILINK_FUZZ_SUPPORT_LOOP_STEPS_H_

#include <cstdint>

#include "support/host.h"

namespace perilink::fuzz {

// A step's byte; its operands follow. The bytes before are the host's steps.
enum class LoopStep : uint8_t {
  kPasses = static_cast<uint8_t>(HostStep::kCount),  // count
  kUnasked,                                          // length, report
  kUnaskedClosed,                                    // the same, with its checksum made right
  kUnplug,                                           //
  kReplug,                                           // and asks for a reopen
  kReopen,                                           //
  kTime,                                             // in 8 ms
  kDirect,                                           // command: direct commands
  kLayer,                                            // layer
  kPatchFlash,                                       // address (2), length, bytes
  kCount,
};

// What the device does with what is written to it; the byte's upper half is a delay in
// milliseconds.
enum class ReplyStep : uint8_t {
  kRight,      // the right answer
  kOtherData,  // length byte, data (10): of the right kind
  kRaw,        // length, report
  kClosed,     // length, report: with its checksum made right
  kSilence,    //
  kMany,       // count: the right answer so many times
  kFailure,    // error: the write fails
  kGone,       // the device is unplugged
  kCount,
};

}  // namespace perilink::fuzz

#endif  // PERILINK_FUZZ_SUPPORT_LOOP_STEPS_H_
