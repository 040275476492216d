// The seam between the library and the system, with an ear at it.
//
// The program's own definitions of some system calls stand before the platform library's: each
// tells the ear and passes the call on. So the simulation sees what the library does on which
// handle, and exactly which reports reach it. There is no registry.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_SEAM_H_
#define PERILINK_TESTS_SERVER_SIMULATION_SEAM_H_

#include "platform/win32.h"

namespace perilink::testing {

class Watch;

// Who listens; null: nobody.
Watch*& TheEar();

// The system's, without a word to the ear.
void SleepUnheard(DWORD milliseconds);

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_SEAM_H_
