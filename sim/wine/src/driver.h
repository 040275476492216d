// The bus driver, seen from the program that plugs devices into it.
#ifndef PERILINK_SIM_WINE_SRC_DRIVER_H_
#define PERILINK_SIM_WINE_SRC_DRIVER_H_

#include <windows.h>
#include <winioctl.h>

#include "bus_driver.h"

namespace perilink::sim {

// An open of the driver; what was plugged in by it goes when it closes. Safe on several threads.
class Driver {
 public:
  explicit Driver(HANDLE file) : file_(file) {}
  Driver(Driver&& other) noexcept : file_(other.file_) { other.file_ = INVALID_HANDLE_VALUE; }
  ~Driver() { CloseHandle(file_); }

  // Returns when the call has ended: whether it succeeded. Only HID_BUS_NEXT waits for anything.
  template <typename In>
  bool Call(DWORD code, const In& in) const {
    return Call(code, &in, sizeof in, nullptr, 0);
  }
  template <typename In, typename Out>
  bool Call(DWORD code, const In& in, Out& out) const {
    return Call(code, &in, sizeof in, &out, sizeof out);
  }
  bool Call(DWORD code) const { return Call(code, nullptr, 0, nullptr, 0); }

 private:
  bool Call(DWORD code, const void* in, DWORD in_size, void* out, DWORD out_size) const;

  HANDLE file_;
};

// Installs and starts the driver first where it doesn't run. Throws std::system_error where it
// doesn't start.
Driver OpenDriver();

}  // namespace perilink::sim

#endif  // PERILINK_SIM_WINE_SRC_DRIVER_H_
