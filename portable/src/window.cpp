#include "perilink_platform/window.h"

#include <new>

#include "active_bus.h"
#include "call.h"
#include "window_system.h"

using perilink::platform::CallMustFail;
using perilink::platform::EnterCall;
using perilink::platform::Fail;
using perilink::platform::WindowSystem;

namespace {

// For calls whose result is a BOOL.
BOOL Succeeded(DWORD error) {
  return error == 0 ? TRUE : Fail(error, FALSE);
}

// What GetMessageW and PeekMessageW ask of their arguments.
DWORD CheckPump(const MSG* message, HWND window, UINT filter_min, UINT filter_max) {
  if (message == nullptr || filter_min != 0 || filter_max != 0) return ERROR_INVALID_PARAMETER;
  if (window != nullptr && !WindowSystem::Get().Exists(window)) return ERROR_INVALID_WINDOW_HANDLE;
  return 0;
}

}  // namespace

HMODULE GetModuleHandleW(LPCWSTR name) {
  if (CallMustFail("GetModuleHandleW")) return nullptr;
  if (name != nullptr) return Fail(ERROR_MOD_NOT_FOUND, HMODULE{});
  static char module;
  return reinterpret_cast<HMODULE>(&module);
}

ATOM RegisterClassW(const WNDCLASSW* window_class) try {
  if (CallMustFail("RegisterClassW")) return 0;
  const WNDCLASSW& wanted = *window_class;
  if (wanted.lpfnWndProc == nullptr || wanted.lpszClassName == nullptr ||
      *wanted.lpszClassName == 0 || wanted.cbClsExtra != 0 || wanted.cbWndExtra != 0 ||
      wanted.hIcon != nullptr || wanted.hCursor != nullptr || wanted.hbrBackground != nullptr ||
      wanted.lpszMenuName != nullptr)
    return Fail(ERROR_INVALID_PARAMETER, ATOM{0});
  ATOM atom = 0;
  const DWORD error =
      WindowSystem::Get().RegisterClass(wanted.lpszClassName, wanted.lpfnWndProc, atom);
  return error == 0 ? atom : Fail(error, ATOM{0});
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY, ATOM{0});
}

HWND CreateWindowExW(DWORD extended_style, LPCWSTR class_name, LPCWSTR window_name, DWORD style,
                     int x, int y, int width, int height, HWND parent, HMENU menu,
                     HINSTANCE instance, LPVOID parameter) try {
  if (CallMustFail("CreateWindowExW")) return nullptr;
  if (parent != nullptr || menu != nullptr) return Fail(ERROR_INVALID_PARAMETER, HWND{});
  if (class_name == nullptr) return Fail(ERROR_CANNOT_FIND_WND_CLASS, HWND{});
  CREATESTRUCTW create{
      parameter,   instance,   menu,          parent, height, width, y, x, static_cast<LONG>(style),
      window_name, class_name, extended_style};
  HWND window = nullptr;
  const DWORD error = WindowSystem::Get().Create(create, window);
  return error == 0 ? window : Fail(error, HWND{});
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY, HWND{});
}

BOOL DestroyWindow(HWND window) {
  const DWORD injected = perilink::platform::InjectedError("DestroyWindow");
  const DWORD error = WindowSystem::Get().Destroy(window);
  return Succeeded(error != 0 ? error : injected);
}

BOOL IsWindow(HWND window) {
  EnterCall("IsWindow");
  return WindowSystem::Get().Exists(window) ? TRUE : FALSE;
}

LONG_PTR GetWindowLongPtrW(HWND window, int index) {
  if (CallMustFail("GetWindowLongPtrW")) return 0;
  if (index != GWLP_WNDPROC) return Fail(ERROR_INVALID_INDEX, LONG_PTR{0});
  const WNDPROC procedure = WindowSystem::Get().Procedure(window);
  if (procedure == nullptr) return Fail(ERROR_INVALID_WINDOW_HANDLE, LONG_PTR{0});
  return reinterpret_cast<LONG_PTR>(procedure);
}

LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value) {
  if (CallMustFail("SetWindowLongPtrW")) return 0;
  if (index != GWLP_WNDPROC || value == 0) return Fail(ERROR_INVALID_INDEX, LONG_PTR{0});
  const WNDPROC before = WindowSystem::Get().SetProcedure(window, reinterpret_cast<WNDPROC>(value));
  if (before == nullptr) return Fail(ERROR_INVALID_WINDOW_HANDLE, LONG_PTR{0});
  return reinterpret_cast<LONG_PTR>(before);
}

HWND FindWindowW(LPCWSTR class_name, LPCWSTR window_name) {
  if (CallMustFail("FindWindowW")) return nullptr;
  return WindowSystem::Get().Find(class_name, window_name);
}

LRESULT DefWindowProcW(HWND window, UINT message, WPARAM, LPARAM) {
  switch (message) {
    case WM_CLOSE:
      DestroyWindow(window);
      return 0;
    case WM_NCCREATE:
    case WM_DEVICECHANGE:
      return TRUE;
    default:
      return 0;
  }
}

BOOL PostMessageW(HWND window, UINT message, WPARAM wparam, LPARAM lparam) try {
  if (CallMustFail("PostMessageW")) return FALSE;
  return Succeeded(WindowSystem::Get().Post(window, message, wparam, lparam));
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY, FALSE);
}

LRESULT SendMessageW(HWND window, UINT message, WPARAM wparam, LPARAM lparam) try {
  if (CallMustFail("SendMessageW")) return 0;
  LRESULT result = 0;
  const DWORD error = WindowSystem::Get().Send(window, message, wparam, lparam, result);
  return error == 0 ? result : Fail(error, LRESULT{0});
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY, LRESULT{0});
}

void PostQuitMessage(int exit_code) {
  EnterCall("PostQuitMessage");
  WindowSystem::Get().PostQuit(exit_code);
}

BOOL GetMessageW(LPMSG message, HWND window, UINT filter_min, UINT filter_max) {
  if (CallMustFail("GetMessageW")) return -1;
  const DWORD error = CheckPump(message, window, filter_min, filter_max);
  if (error != 0) return Fail(error, -1);
  while (!WindowSystem::Get().Pump(window, true, *message)) {
    WindowSystem::Get().AwaitMessage(perilink::platform::kForever);
  }
  return message->message == WM_QUIT ? FALSE : TRUE;
}

BOOL PeekMessageW(LPMSG message, HWND window, UINT filter_min, UINT filter_max, UINT remove) {
  if (CallMustFail("PeekMessageW")) return FALSE;
  DWORD error = CheckPump(message, window, filter_min, filter_max);
  if (remove != PM_REMOVE && remove != PM_NOREMOVE) error = ERROR_INVALID_PARAMETER;
  if (error != 0) return Fail(error, FALSE);
  if (WindowSystem::Get().Pump(window, remove == PM_REMOVE, *message)) return TRUE;
  WindowSystem::Get().AwaitMessage(0);
  return WindowSystem::Get().Pump(window, remove == PM_REMOVE, *message) ? TRUE : FALSE;
}

BOOL TranslateMessage(const MSG*) {
  return FALSE;
}

LRESULT DispatchMessageW(const MSG* message) {
  EnterCall("DispatchMessageW");
  return WindowSystem::Get().Dispatch(*message);
}

HDEVNOTIFY RegisterDeviceNotificationW(HANDLE window, LPVOID filter, DWORD flags) try {
  if (CallMustFail("RegisterDeviceNotificationW")) return nullptr;
  if (flags != DEVICE_NOTIFY_WINDOW_HANDLE) return Fail(ERROR_INVALID_FLAGS, HDEVNOTIFY{});
  if (filter == nullptr) return Fail(ERROR_INVALID_PARAMETER, HDEVNOTIFY{});
  const auto& wanted = *static_cast<const DEV_BROADCAST_DEVICEINTERFACE_W*>(filter);
  if (wanted.dbcc_size < sizeof(wanted) || wanted.dbcc_devicetype != DBT_DEVTYP_DEVICEINTERFACE ||
      !(wanted.dbcc_classguid == GUID_DEVINTERFACE_USB_DEVICE))
    return Fail(ERROR_INVALID_DATA, HDEVNOTIFY{});
  // The machine's devices are told of from now on.
  if (perilink::platform::ActiveBus() == nullptr)
    return Fail(ERROR_NO_SYSTEM_RESOURCES, HDEVNOTIFY{});
  const DWORD error = WindowSystem::Get().RegisterNotification(static_cast<HWND>(window));
  // The notification lives and dies with its window, whose handle serves for it.
  return error == 0 ? window : Fail(error, HDEVNOTIFY{});
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY, HDEVNOTIFY{});
}
