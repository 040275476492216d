// What a device does, as steps of a fuzz input.
#ifndef PERILINK_FUZZ_SUPPORT_DEVICE_STEPS_H_
#define PERILINK_FUZZ_SUPPORT_DEVICE_STEPS_H_

#include <cstdint>

#include "perilink/records.h"
#include "sim/flash_image.h"
#include "support/host.h"
#include "support/input.h"

namespace perilink::fuzz {

// A step's byte in an input of the dispatcher's target; its operands follow. The bytes before are
// the host's steps.
enum class DeviceStep : uint8_t {
  kAnswer = static_cast<uint8_t>(HostStep::kCount),  // length byte, data (10): to the head
  kServe,                                            // count: so many right answers
  kSpoiltEcho,                                       // position, value: an echo with one other byte
  kReport,                                           // report (17), whatever is awaited
  kEvent,                                            // flags, data (9)
  kPatchFlash,                                       // address (2), length, bytes
  kSealFlash,                                        // makes the fields' check bytes right
  kWholeRead,                                        // a full read, answered as it should be
  kTimeout,                                          // the head is to be written again
  kDrop,                                             // everything queued is dropped
  kBattery,                                          // level, charging, voltage (2) from now on
  kTime,                                             // milliseconds
  kCount,
};

// What a device with this memory answers to a request: the echo of a write, the memory's bytes,
// else the request with ones for data.
CommandFrame RightAnswer(const CommandFrame& request, const sim::FlashImage& flash);

}  // namespace perilink::fuzz

#endif  // PERILINK_FUZZ_SUPPORT_DEVICE_STEPS_H_
