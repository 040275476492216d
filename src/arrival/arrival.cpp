#include "arrival/arrival.h"

#include "perilink/usb_changed.h"

namespace perilink {
namespace {

using std::memory_order_relaxed;

constexpr wchar_t kWindowClass[] = L"usb hook msg window";

// GUID_DEVINTERFACE_USB_DEVICE: whole USB devices, whatever interfaces they have.
constexpr GUID kUsbDeviceInterface = {
    0xA5DCBF10, 0x6530, 0x11D2, {0x90, 0x1F, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xED}};

HWND CreateHiddenWindow(WNDPROC procedure) {
  const HINSTANCE module = GetModuleHandleW(nullptr);
  WNDCLASSW window_class{};
  window_class.lpfnWndProc = procedure;
  window_class.hInstance = module;
  window_class.lpszClassName = kWindowClass;
  // Fails when an earlier start has registered the class, which then serves again.
  RegisterClassW(&window_class);
  return CreateWindowExW(0, kWindowClass, L"", WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, CW_USEDEFAULT,
                         CW_USEDEFAULT, CW_USEDEFAULT, nullptr, nullptr, module, nullptr);
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
  static constinit ArrivalNotifier notifier;
  return notifier;
}

void ArrivalNotifier::Set(UsbChangedCallback callback, int32_t delay_ms) {
  callback_.store(callback, memory_order_relaxed);
  delay_ms_.store(delay_ms, memory_order_relaxed);
}

void ArrivalNotifier::Start(UsbChangedCallback callback, int32_t delay_ms) {
  Set(callback, delay_ms);
  if (window_.load(memory_order_relaxed) == nullptr) {
    const HWND window = CreateHiddenWindow(&WindowProcedure);
    if (window != nullptr) RegisterForUsbDevices(window);
    window_.store(window, memory_order_relaxed);
  }
  Call(true);
}

void ArrivalNotifier::Stop() {
  const HWND window = window_.exchange(nullptr, memory_order_relaxed);
  // Only its own thread can destroy a window: the default handling of this message does it there.
  if (window != nullptr) PostMessageW(window, WM_CLOSE, 0, 0);
}

void ArrivalNotifier::Call(bool arrived) {
  const UsbChangedCallback callback = callback_.load(memory_order_relaxed);
  if (callback != nullptr) callback(arrived);
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

LRESULT CALLBACK ArrivalNotifier::WindowProcedure(HWND window, UINT message, WPARAM wparam,
                                                  LPARAM lparam) {
  if (message == WM_DEVICECHANGE)
    Instance().OnDeviceChange(wparam, reinterpret_cast<const DEV_BROADCAST_HDR*>(lparam));
  return DefWindowProcW(window, message, wparam, lparam);
}

}  // namespace perilink

// ---- Exports ----------------------------------------------------------------------------------

using perilink::ArrivalNotifier;

void StartUsbChanged(UsbChangedCallback callback, int32_t delay_ms) {
  ArrivalNotifier::Instance().Start(callback, delay_ms);
}

void StopUsbChanged(void) {
  ArrivalNotifier::Instance().Stop();
}

void SetUsbChangedCallBack(UsbChangedCallback callback, int32_t delay_ms) {
  ArrivalNotifier::Instance().Set(callback, delay_ms);
}
