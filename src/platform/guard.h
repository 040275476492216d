// The one mechanism that keeps exceptions, allocation failure above all, inside the library.
#ifndef PERILINK_SRC_PLATFORM_GUARD_H_
#define PERILINK_SRC_PLATFORM_GUARD_H_

#include <utility>

namespace perilink {

// Runs the body of an export, or of a thread or callback that the system calls. Whatever it throws
// ends here, and the caller gets `failure`, the export's documented failure value:
//
//   return Guarded(false, [&] { return DoIt(NarrowToWide(path)); });
//
// Outputs behind pointers are the body's own matter: it writes them last.
template <typename Result, typename Body>
Result Guarded(Result failure, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    return failure;
  }
}

// The same for a body without a result.
template <typename Body>
void Guarded(Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (...) {
  }
}

}  // namespace perilink

#endif  // PERILINK_SRC_PLATFORM_GUARD_H_
