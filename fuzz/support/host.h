// What a host does to the server, as steps of a fuzz input, and what it gets to see.
#ifndef PERILINK_FUZZ_SUPPORT_HOST_H_
#define PERILINK_FUZZ_SUPPORT_HOST_H_

#include <cstdint>
#include <vector>

#include "perilink/records.h"
#include "support/input.h"

namespace perilink::fuzz {

// A step's byte in an input; its operands follow.
enum class HostStep : uint8_t {
  kQuery,       // command
  kSet,         // command, length, data
  kReadAll,     //
  kReadMemory,  // address (2), length (2), tag
  kEntry,       // last chunk, tag, frame (17)
  kUpdate,      // offset (2), length, bytes of the record that change
  kOptimizer,   // enable, seconds (2), level, jump
  kKeyboard,    // keyboard target flag
  kCount,
};
void TakeHostStep(HostStep step, Input& input);

// The server, its optimiser and the library's own record as a process finds them at its start, but
// for a callback that records what it is called with.
void StartAfresh(bool with_callback);

struct Call {
  CommandFrame frame;
  std::vector<uint8_t> data;
};
// What the callback has seen since the last StartAfresh or TakeCalls. Lengths are checked, and so
// is an image that it is given.
std::vector<Call> TakeCalls();

}  // namespace perilink::fuzz

#endif  // PERILINK_FUZZ_SUPPORT_HOST_H_
