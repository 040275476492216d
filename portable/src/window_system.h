// Window classes, windows, and the messages between threads.
#ifndef PERILINK_PLATFORM_SRC_WINDOW_SYSTEM_H_
#define PERILINK_PLATFORM_SRC_WINDOW_SYSTEM_H_

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "perilink_platform/window.h"
#include "scheduler.h"

namespace perilink::platform {

struct WindowClass {
  ATOM atom;
  std::wstring name;
  WNDPROC procedure;
};

struct Window {
  HWND handle;
  std::shared_ptr<const WindowClass> window_class;
  std::wstring title;
  Thread* owner;
  std::atomic<WNDPROC> procedure{nullptr};  // the class's, until it is replaced
  bool notified = false;                    // of USB devices
  bool destroying = false;                  // DestroyWindow has begun
};

// Functions that return an error return 0 or a Windows error code. Window procedures are called
// without any lock.
class WindowSystem {
 public:
  static WindowSystem& Get();

  DWORD RegisterClass(const std::wstring& name, WNDPROC procedure, ATOM& atom);
  DWORD Create(CREATESTRUCTW& create, HWND& window);
  DWORD Destroy(HWND window);
  // The windows of a thread that ends, without a word to their procedures.
  void DestroyAllOf(Thread& thread);
  bool Exists(HWND window);
  // Null if there is no such window.
  WNDPROC Procedure(HWND window);
  WNDPROC SetProcedure(HWND window, WNDPROC procedure);  // the one before
  HWND Find(const wchar_t* class_name, const wchar_t* title);

  DWORD Post(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
  DWORD Send(HWND window, UINT message, WPARAM wparam, LPARAM lparam, LRESULT& result);
  void PostQuit(int exit_code);
  // Handles what was sent to the calling thread and takes what was posted. False if there is
  // nothing.
  bool Pump(HWND window, bool remove, MSG& message);
  // Waits until something has come for the calling thread since the last Pump.
  void AwaitMessage(uint64_t timeout);
  // Calls a window's procedure if the window is the calling thread's.
  LRESULT Dispatch(const MSG& message);

  DWORD RegisterNotification(HWND window);
  // Throws without memory, and has told nobody then.
  void NotifyDeviceChange(const std::wstring& path, bool arrived);

 private:
  std::shared_ptr<Window> FindWindow(HWND window);
  std::shared_ptr<const WindowClass> FindClass(const wchar_t* name);
  void HandleSent(Thread& self);
  void Answer(const std::shared_ptr<SentMessage>& sent, bool handled, LRESULT result);
  bool TakePosted(MessageQueue& queue, HWND window, bool remove, MSG& message);
  void Forget(Window& window);

  // Taken before the scheduler's, after the device lock.
  std::mutex mutex_;
  std::vector<std::shared_ptr<const WindowClass>> classes_;
  std::map<HWND, std::shared_ptr<Window>> windows_;  // in order of creation
  uintptr_t last_window_ = 0x10000;
};

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_WINDOW_SYSTEM_H_
