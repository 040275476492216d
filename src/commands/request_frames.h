// Requests that both the direct commands and the background parts send.
#ifndef PERILINK_SRC_COMMANDS_REQUEST_FRAMES_H_
#define PERILINK_SRC_COMMANDS_REQUEST_FRAMES_H_

#include "perilink/records.h"

namespace perilink {

// Asks whether the wireless device is on line; the reply carries its address too.
CommandFrame BuildOnLineFrame();

// Asks for the device's identification. Its four data bytes are pseudo-random, from a generator
// reseeded with the current second on every call: two calls in one second build the same frame.
// `keyboard` sets the keyboard target's bit whatever the process-wide target.
CommandFrame BuildDeviceInfoFrame(bool keyboard);

}  // namespace perilink

#endif  // PERILINK_SRC_COMMANDS_REQUEST_FRAMES_H_
