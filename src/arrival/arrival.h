// The hidden window through which the system tells of USB devices that come and go.
#ifndef PERILINK_SRC_ARRIVAL_ARRIVAL_H_
#define PERILINK_SRC_ARRIVAL_ARRIVAL_H_

#include <atomic>
#include <cstdint>

#include "perilink/records.h"
#include "platform/win32.h"

namespace perilink {

class ArrivalNotifier {
 public:
  // The process's notifier.
  static ArrivalNotifier& Instance();

  // The exports of the same meaning; see perilink/usb_changed.h.
  void Start(UsbChangedCallback callback, int32_t delay_ms);
  void Stop();
  void Set(UsbChangedCallback callback, int32_t delay_ms);

 private:
  static LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
  void OnDeviceChange(WPARAM event, const DEV_BROADCAST_HDR* broadcast);
  void Call(bool arrived);

  // Read and written by any thread; each value stands for itself.
  std::atomic<UsbChangedCallback> callback_{nullptr};
  std::atomic<int32_t> delay_ms_{0};
  std::atomic<HWND> window_{nullptr};
};

}  // namespace perilink

#endif  // PERILINK_SRC_ARRIVAL_ARRIVAL_H_
