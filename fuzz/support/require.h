// What every target holds its subject to.
#ifndef PERILINK_FUZZ_SUPPORT_REQUIRE_H_
#define PERILINK_FUZZ_SUPPORT_REQUIRE_H_

#include <cstdio>
#include <cstdlib>
#include <string>

namespace perilink::fuzz {

// Says what is violated and ends the process; the fuzzer keeps the input that led there.
[[noreturn]] inline void Violated(const std::string& what) {
  std::fprintf(stderr, "\nviolated: %s\n", what.c_str());
  std::abort();
}

inline void Require(bool holds, const char* what) {
  if (!holds) Violated(what);
}

}  // namespace perilink::fuzz

#endif  // PERILINK_FUZZ_SUPPORT_REQUIRE_H_
