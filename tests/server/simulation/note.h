// What a seed notes on its way, and what it says when a rule is broken.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_NOTE_H_
#define PERILINK_TESTS_SERVER_SIMULATION_NOTE_H_

#include <cstdint>

namespace perilink::testing {

struct Notes {
  uint64_t seed = 0;
  bool printed = false;  // as they come
  bool canary = false;   // what a device has said is changed on its way to the library
  uint64_t digest = 0;   // of all of them: the same for every run of the seed
};
Notes& TheNotes();

void Note(const char* what, uint64_t first = 0, uint64_t second = 0);

// Names the seed and the rule, and ends the process.
[[noreturn]] void Broken(const char* rule);

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_NOTE_H_
