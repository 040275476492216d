// What hosts do and what goes wrong, drawn from a seed.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_HOSTS_H_
#define PERILINK_TESTS_SERVER_SIMULATION_HOSTS_H_

#include <cstdint>

namespace perilink::testing {

void RunHosts(uint64_t seed);

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_HOSTS_H_
