// The runtime's own handler names the uncaught exception on standard error, and for that links a
// demangler and formatted output into the DLL: a quarter of its size, for a stream that a host
// without a console doesn't have. Nothing is thrown across an export, so the plain end will do.
#include <cstdlib>

namespace __gnu_cxx {

// Declared by the runtime, which calls it from std::terminate.
void __verbose_terminate_handler();
void __verbose_terminate_handler() {
  std::abort();
}

}  // namespace __gnu_cxx
