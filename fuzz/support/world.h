// The world in which the targets run, and its way back to how it was for the next input.
#ifndef PERILINK_FUZZ_SUPPORT_WORLD_H_
#define PERILINK_FUZZ_SUPPORT_WORLD_H_

#include <string>

namespace perilink::fuzz {

// The virtual world, with a registry folder that goes with the process. Once, before all else.
void EnterWorld();

// Where the registry keeps its file.
std::string RegistryFile();

// No registry, and the calendar at its start: an input behaves the same whatever ran before it.
void ForgetRegistry();

}  // namespace perilink::fuzz

#endif  // PERILINK_FUZZ_SUPPORT_WORLD_H_
