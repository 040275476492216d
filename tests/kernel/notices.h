// What the platform tells a host's window of devices that come and go.
#ifndef PERILINK_TESTS_KERNEL_NOTICES_H_
#define PERILINK_TESTS_KERNEL_NOTICES_H_

#include <functional>
#include <string>
#include <vector>

#include "machine.h"
#include "perilink_platform/win32.h"

namespace perilink::testing {

// Of the thread that made it, which pumps its messages in Await. One in a process.
class Notices {
 public:
  struct Notice {
    bool arrived;
    std::wstring name;
    bool operator==(const Notice&) const = default;
  };

  Notices() {
    notices_ = this;
    WNDCLASSW window_class{};
    window_class.lpfnWndProc = &OnMessage;
    window_class.lpszClassName = L"notices";
    RegisterClassW(&window_class);
    window_ =
        CreateWindowExW(0, L"notices", L"", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
    DEV_BROADCAST_DEVICEINTERFACE_W filter{};
    filter.dbcc_size = sizeof filter;
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    filter.dbcc_classguid = GUID_DEVINTERFACE_USB_DEVICE;
    RegisterDeviceNotificationW(window_, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
  }
  ~Notices() { DestroyWindow(window_); }

  // Whether one of that kind comes in time about a device whose name has the text in it. Others are
  // passed over; it stands in `last`.
  bool Await(bool arrived, const std::wstring& text = L"vid_1234") {
    return Eventually([&] {
      MSG message{};
      PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE);
      for (const Notice& notice : std::exchange(come_, {})) {
        last = notice;
        if (notice.arrived == arrived && notice.name.find(text) != notice.name.npos) return true;
      }
      return false;
    });
  }

  std::function<void()> on_arrival;  // from inside the message
  Notice last{};

 private:
  static LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    if (message == WM_DEVICECHANGE) {
      const auto& device = *reinterpret_cast<const DEV_BROADCAST_DEVICEINTERFACE_W*>(lparam);
      notices_->come_.push_back({wparam == DBT_DEVICEARRIVAL, device.dbcc_name});
      if (wparam == DBT_DEVICEARRIVAL && notices_->on_arrival) notices_->on_arrival();
    }
    return DefWindowProcW(window, message, wparam, lparam);
  }

  static inline Notices* notices_ = nullptr;
  HWND window_;
  std::vector<Notice> come_;
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_KERNEL_NOTICES_H_
