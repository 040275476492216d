/* Hidden windows, messages and notifications of USB devices.
 *
 * A window belongs to the thread that created it, which alone calls its procedure, when it pumps
 * messages (GetMessageW, PeekMessageW) or sends one. Nothing is ever shown. */
#ifndef PERILINK_PLATFORM_WINDOW_H_
#define PERILINK_PLATFORM_WINDOW_H_

#include "perilink_platform/types.h"

#define WM_NULL 0x0000u
#define WM_CREATE 0x0001u
#define WM_DESTROY 0x0002u
#define WM_CLOSE 0x0010u
#define WM_QUIT 0x0012u
#define WM_NCCREATE 0x0081u
#define WM_NCDESTROY 0x0082u
#define WM_DEVICECHANGE 0x0219u
#define WM_USER 0x0400u
#define WM_APP 0x8000u

#define PM_NOREMOVE 0u
#define PM_REMOVE 1u

#define GWLP_WNDPROC (-4)

#define WS_OVERLAPPEDWINDOW 0x00CF0000u
#define CW_USEDEFAULT ((int)0x80000000u)

#define DBT_DEVICEARRIVAL 0x8000u
#define DBT_DEVICEREMOVECOMPLETE 0x8004u
#define DBT_DEVTYP_DEVICEINTERFACE 5u
#define DEVICE_NOTIFY_WINDOW_HANDLE 0u

/* {A5DCBF10-6530-11D2-901F-00C04FB951ED} */
static const GUID GUID_DEVINTERFACE_USB_DEVICE = {
    0xA5DCBF10u, 0x6530, 0x11D2, {0x90, 0x1F, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xED}};

typedef LRESULT(CALLBACK* WNDPROC)(HWND window, UINT message, WPARAM wparam, LPARAM lparam);

typedef struct tagWNDCLASSW {
  UINT style;
  WNDPROC lpfnWndProc;
  int cbClsExtra;
  int cbWndExtra;
  HINSTANCE hInstance;
  HICON hIcon;
  HCURSOR hCursor;
  HBRUSH hbrBackground;
  LPCWSTR lpszMenuName;
  LPCWSTR lpszClassName;
} WNDCLASSW;

typedef struct tagCREATESTRUCTW {
  LPVOID lpCreateParams;
  HINSTANCE hInstance;
  HMENU hMenu;
  HWND hwndParent;
  int cy;
  int cx;
  int y;
  int x;
  LONG style;
  LPCWSTR lpszName;
  LPCWSTR lpszClass;
  DWORD dwExStyle;
} CREATESTRUCTW;

typedef struct tagPOINT {
  LONG x;
  LONG y;
} POINT;

typedef struct tagMSG {
  HWND hwnd;
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
  DWORD time;
  POINT pt;
} MSG;
typedef MSG* LPMSG;

typedef struct DEV_BROADCAST_HDR {
  DWORD dbch_size;
  DWORD dbch_devicetype;
  DWORD dbch_reserved;
} DEV_BROADCAST_HDR;
typedef DEV_BROADCAST_HDR* PDEV_BROADCAST_HDR;

/* 32 bytes, and more in a broadcast, whose name goes on beyond the record. */
typedef struct DEV_BROADCAST_DEVICEINTERFACE_W {
  DWORD dbcc_size;
  DWORD dbcc_devicetype;
  DWORD dbcc_reserved;
  GUID dbcc_classguid;
  WCHAR dbcc_name[1];
} DEV_BROADCAST_DEVICEINTERFACE_W;
typedef DEV_BROADCAST_DEVICEINTERFACE_W* PDEV_BROADCAST_DEVICEINTERFACE_W;

PERILINK_PLATFORM_BEGIN

/* The process's main module. Null with ERROR_MOD_NOT_FOUND for any `name` but null. */
HMODULE WINAPI GetModuleHandleW(LPCWSTR name);

/* Registers a window class for the whole process. 0 with ERROR_CLASS_ALREADY_EXISTS (names compare
 * without regard to case), or ERROR_INVALID_PARAMETER without procedure or name, or with extra
 * bytes, icon, cursor, background or menu, which hidden windows don't have. The style has no
 * effect. */
ATOM WINAPI RegisterClassW(const WNDCLASSW* window_class);

/* Creates a hidden window of the calling thread. Its procedure gets WM_NCCREATE (result FALSE:
 * refused) and WM_CREATE (result -1: refused). Null with ERROR_CANNOT_FIND_WND_CLASS, or
 * ERROR_INVALID_PARAMETER with a parent or a menu. Style, position and size have no effect. */
HWND WINAPI CreateWindowExW(DWORD extended_style, LPCWSTR class_name, LPCWSTR window_name,
                            DWORD style, int x, int y, int width, int height, HWND parent,
                            HMENU menu, HINSTANCE instance, LPVOID parameter);
/* Sends WM_DESTROY and WM_NCDESTROY; the window's messages and notifications go with it. FALSE with
 * ERROR_INVALID_WINDOW_HANDLE, or ERROR_ACCESS_DENIED from another thread than the window's. */
BOOL WINAPI DestroyWindow(HWND window);
BOOL WINAPI IsWindow(HWND window);
/* The address of the window's procedure, and a new one for it, with the old one as result: `index`
 * is GWLP_WNDPROC (ERROR_INVALID_INDEX). Any thread. 0 with ERROR_INVALID_WINDOW_HANDLE. */
LONG_PTR WINAPI GetWindowLongPtrW(HWND window, int index);
LONG_PTR WINAPI SetWindowLongPtrW(HWND window, int index, LONG_PTR value);
/* A window by its class name and its title (either may be null: any). Null if there is none. */
HWND WINAPI FindWindowW(LPCWSTR class_name, LPCWSTR window_name);

/* WM_CLOSE destroys the window, WM_NCCREATE and WM_DEVICECHANGE give TRUE, all else 0. */
LRESULT WINAPI DefWindowProcW(HWND window, UINT message, WPARAM wparam, LPARAM lparam);

/* Puts a message into the queue of the window's thread (of the calling thread if `window` is null).
 * FALSE with ERROR_INVALID_WINDOW_HANDLE, or ERROR_NOT_ENOUGH_QUOTA with 10,000 messages waiting.
 */
BOOL WINAPI PostMessageW(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
/* Calls the window's procedure; from another thread, waits until the window's thread pumps and has
 * done so, handling what is sent to its own windows meanwhile. 0 with ERROR_INVALID_WINDOW_HANDLE,
 * also when the window goes away first. */
LRESULT WINAPI SendMessageW(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
/* Ends the calling thread's message loop: GetMessageW gives WM_QUIT once nothing else is queued. */
void WINAPI PostQuitMessage(int exit_code);

/* Handles what was sent to the calling thread's windows and takes the next posted message, of
 * `window` or with null of any, waiting for one. 0 for WM_QUIT, else 1; -1 with
 * ERROR_INVALID_WINDOW_HANDLE, or ERROR_INVALID_PARAMETER for a null `message` or filters other
 * than 0. */
BOOL WINAPI GetMessageW(LPMSG message, HWND window, UINT filter_min, UINT filter_max);
/* The same without waiting: FALSE if nothing is queued, which in virtual time takes a few
 * microseconds and lets other ready threads run. `remove` is PM_REMOVE or PM_NOREMOVE. */
BOOL WINAPI PeekMessageW(LPMSG message, HWND window, UINT filter_min, UINT filter_max, UINT remove);
/* There is no keyboard: FALSE. */
BOOL WINAPI TranslateMessage(const MSG* message);
/* Calls the procedure of the message's window, which must be the calling thread's. */
LRESULT WINAPI DispatchMessageW(const MSG* message);

/* From now on the window gets WM_DEVICECHANGE when a USB device comes (DBT_DEVICEARRIVAL) or goes
 * (DBT_DEVICEREMOVECOMPLETE), as a message that is sent when its thread pumps; the
 * DEV_BROADCAST_DEVICEINTERFACE_W behind lParam lives as long as the call. Ends with the window.
 * `filter` is a DEV_BROADCAST_DEVICEINTERFACE_W for GUID_DEVINTERFACE_USB_DEVICE (else
 * ERROR_INVALID_DATA), `flags` DEVICE_NOTIFY_WINDOW_HANDLE (ERROR_INVALID_FLAGS). Null on failure,
 * also with ERROR_INVALID_WINDOW_HANDLE. */
HDEVNOTIFY WINAPI RegisterDeviceNotificationW(HANDLE window, LPVOID filter, DWORD flags);

PERILINK_PLATFORM_END

#endif /* PERILINK_PLATFORM_WINDOW_H_ */
