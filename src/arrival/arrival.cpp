#include "arrival/arrival.h"

#include <cstddef>
#include <new>
#include <utility>

#include "perilink/usb_changed.h"
#include "platform/guard.h"

namespace perilink {
namespace {

using std::memory_order_relaxed;

// GUID_DEVINTERFACE_USB_DEVICE: whole USB devices, whatever interfaces they have.
constexpr GUID kUsbDeviceInterface = {
    0xA5DCBF10, 0x6530, 0x11D2, {0x90, 0x1F, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xED}};

// The class has the system's own procedure, and each window gets ours. A window that is given up
// gets the system's back, so that no message reaches a library that may be gone.
HWND CreateHiddenWindow() {
  const HMODULE module = LibraryModule();
  WNDCLASSW window_class{};
  window_class.lpfnWndProc = DefWindowProcW;
  window_class.hInstance = module;
  window_class.lpszClassName = kNoticeClass;
  // Fails when an earlier start has registered the class, which then serves again.
  RegisterClassW(&window_class);
  return CreateWindowExW(0, kNoticeClass, L"", WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, CW_USEDEFAULT,
                         CW_USEDEFAULT, CW_USEDEFAULT, nullptr, nullptr, module, nullptr);
}

void SetProcedure(HWND window, WNDPROC procedure) {
  SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(procedure));
}

// False if the window went with its thread, even if another window has its handle by now.
bool HasProcedure(HWND window, WNDPROC procedure) {
  return window != nullptr &&
         GetWindowLongPtrW(window, GWLP_WNDPROC) == reinterpret_cast<LONG_PTR>(procedure);
}

// The registration ends with its window.
void RegisterForUsbDevices(HWND window) {
  DEV_BROADCAST_DEVICEINTERFACE_W filter{};
  static_assert(sizeof(filter) == 32);
  filter.dbcc_size = sizeof(filter);
  filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
  filter.dbcc_classguid = kUsbDeviceInterface;
  RegisterDeviceNotificationW(window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
}

}  // namespace

ArrivalNotifier& ArrivalNotifier::Instance() {
  alignas(ArrivalNotifier) static std::byte memory[sizeof(ArrivalNotifier)];
  static ArrivalNotifier* const notifier = new (memory) ArrivalNotifier;
  return *notifier;
}

void ArrivalNotifier::Set(UsbChangedCallback callback, int32_t delay_ms) {
  callback_.store(callback, memory_order_relaxed);
  delay_ms_.store(delay_ms, memory_order_relaxed);
}

void ArrivalNotifier::Start(UsbChangedCallback callback, int32_t delay_ms) {
  Set(callback, delay_ms);
  Guarded([this] { EnsureWindow(); });
  Call(true);
}

void ArrivalNotifier::EnsureWindow() {
  const std::lock_guard lock(mutex_);
  if (HasProcedure(window_, &WindowProcedure)) return;
  window_ = nullptr;
  const HWND window = CreateHiddenWindow();
  if (window == nullptr) return;
  // From here on the window can call the library.
  if (!module_.Take()) {
    DestroyWindow(window);
    return;
  }
  window_thread_ = GetCurrentThreadId();
  SetProcedure(window, &WindowProcedure);
  RegisterForUsbDevices(window);
  window_ = window;
}

void ArrivalNotifier::Stop() {
  const std::lock_guard lock(mutex_);
  const HWND window = std::exchange(window_, nullptr);
  if (HasProcedure(window, &WindowProcedure)) {
    SetProcedure(window, DefWindowProcW);
    // Only its own thread can destroy a window: the default handling of this message does it there.
    PostMessageW(window, WM_CLOSE, 0, 0);
  }
  // On another thread nothing tells whether the window's thread is just handling a message: the
  // library then stays loaded until the process ends.
  if (GetCurrentThreadId() == window_thread_ && messages_inside_ == 0) module_.Release();
}

void ArrivalNotifier::Call(bool arrived) {
  const UsbChangedCallback callback = callback_.load(memory_order_relaxed);
  if (callback != nullptr) Guarded([&] { callback(arrived); });
}

void ArrivalNotifier::OnDeviceChange(WPARAM event, const DEV_BROADCAST_HDR* broadcast) {
  // Events about no device in particular carry no header.
  if (broadcast == nullptr || broadcast->dbch_devicetype != DBT_DEVTYP_DEVICEINTERFACE) return;
  if (event != DBT_DEVICEARRIVAL && event != DBT_DEVICEREMOVECOMPLETE) return;
  if (callback_.load(memory_order_relaxed) == nullptr) return;
  const int32_t delay_ms = delay_ms_.load(memory_order_relaxed);
  if (delay_ms > 0) Sleep(static_cast<DWORD>(delay_ms));
  // Read again: the host may have replaced the callback during the delay.
  Call(event == DBT_DEVICEARRIVAL);
}

void ArrivalNotifier::OnWindowGone(HWND window) {
  const std::lock_guard lock(mutex_);
  if (window_ == window) window_ = nullptr;
}

LRESULT CALLBACK ArrivalNotifier::WindowProcedure(HWND window, UINT message, WPARAM wparam,
                                                  LPARAM lparam) {
  ArrivalNotifier& notifier = Instance();
  ++notifier.messages_inside_;  // a callback may pump messages, too
  if (message == WM_DEVICECHANGE)
    notifier.OnDeviceChange(wparam, reinterpret_cast<const DEV_BROADCAST_HDR*>(lparam));
  if (message == WM_NCDESTROY) Guarded([&] { notifier.OnWindowGone(window); });
  const LRESULT result = DefWindowProcW(window, message, wparam, lparam);
  --notifier.messages_inside_;
  return result;
}

}  // namespace perilink

// ---- Exports ----------------------------------------------------------------------------------

using perilink::ArrivalNotifier;
using perilink::Guarded;

void StartUsbChanged(UsbChangedCallback callback, int32_t delay_ms) {
  ArrivalNotifier::Instance().Start(callback, delay_ms);
}

void StopUsbChanged(void) {
  Guarded([] { ArrivalNotifier::Instance().Stop(); });
}

void SetUsbChangedCallBack(UsbChangedCallback callback, int32_t delay_ms) {
  ArrivalNotifier::Instance().Set(callback, delay_ms);
}
