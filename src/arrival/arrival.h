// The hidden window through which the system tells of USB devices that come and go.
#ifndef PERILINK_SRC_ARRIVAL_ARRIVAL_H_
#define PERILINK_SRC_ARRIVAL_ARRIVAL_H_

#include <atomic>
#include <cstdint>
#include <mutex>

#include "perilink/records.h"
#include "platform/module.h"
#include "platform/win32.h"

namespace perilink {

// The class of the notice's window belongs to the library's module.
inline constexpr wchar_t kNoticeClass[] = L"usb hook msg window";

class ArrivalNotifier {
 public:
  // The process's notifier. It is never destroyed: a window may outlive main().
  static ArrivalNotifier& Instance();

  // The exports of the same meaning; see perilink/usb_changed.h.
  void Start(UsbChangedCallback callback, int32_t delay_ms);
  void Stop();
  void Set(UsbChangedCallback callback, int32_t delay_ms);

 private:
  static LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
  void EnsureWindow();
  void OnDeviceChange(WPARAM event, const DEV_BROADCAST_HDR* broadcast);
  void OnWindowGone(HWND window);
  void Call(bool arrived);

  // Read and written by any thread; each value stands for itself.
  std::atomic<UsbChangedCallback> callback_{nullptr};
  std::atomic<int32_t> delay_ms_{0};

  // Held while a window is made or given up, never while the host is called.
  std::mutex mutex_;
  HWND window_ = nullptr;
  DWORD window_thread_ = 0;
  ModuleReference module_;  // while messages can lead into this code
  std::atomic<int> messages_inside_{0};
};

}  // namespace perilink

#endif  // PERILINK_SRC_ARRIVAL_ARRIVAL_H_
