// A handle of a HID interface, as a host has one.
#ifndef PERILINK_TESTS_KERNEL_HANDLE_H_
#define PERILINK_TESTS_KERNEL_HANDLE_H_

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "machine.h"
#include "perilink_platform/win32.h"

namespace perilink::testing {

// The paths that the platform enumerates.
inline std::vector<std::wstring> Paths() {
  GUID hid;
  HidD_GetHidGuid(&hid);
  const HDEVINFO set =
      SetupDiGetClassDevsW(&hid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  std::vector<std::wstring> paths;
  SP_DEVICE_INTERFACE_DATA item{};
  item.cbSize = sizeof item;
  for (DWORD i = 0; SetupDiEnumDeviceInterfaces(set, nullptr, &hid, i, &item); ++i) {
    DWORD size = 0;
    SetupDiGetDeviceInterfaceDetailW(set, &item, nullptr, 0, &size, nullptr);
    std::vector<wchar_t> buffer(size / sizeof(wchar_t) + 1);
    auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
    detail->cbSize = sizeof *detail;
    SetupDiGetDeviceInterfaceDetailW(set, &item, detail, size, nullptr, nullptr);
    paths.emplace_back(detail->DevicePath);
  }
  SetupDiDestroyDeviceInfoList(set);
  return paths;
}

// The first path with the text in it; empty without one.
inline std::wstring PathWith(const std::wstring& text) {
  for (const std::wstring& path : Paths()) {
    if (path.find(text) != std::wstring::npos) return path;
  }
  return L"";
}

class Handle {
 public:
  explicit Handle(const std::wstring& path, DWORD access = GENERIC_READ | GENERIC_WRITE)
      : handle_(CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr)),
        error_(IsOpen() ? 0 : GetLastError()),
        event_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
  ~Handle() {
    if (pending_) {
      DWORD bytes = 0;
      CancelIo(handle_);
      GetOverlappedResult(handle_, &overlapped_, &bytes, TRUE);
    }
    if (IsOpen()) CloseHandle(handle_);
    CloseHandle(event_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  bool IsOpen() const { return handle_ != INVALID_HANDLE_VALUE; }
  DWORD error() const { return error_; }
  HANDLE get() const { return handle_; }

  // The next report; empty, with the error in error(), when none comes in time (WAIT_TIMEOUT) or
  // none will. A read that is still pending goes on with the next call.
  Bytes Read(milliseconds patience = kPatience) {
    DWORD bytes = 0;
    if (!pending_) {
      overlapped_ = {};
      overlapped_.hEvent = event_;
      if (!ReadFile(handle_, buffer_.data(), static_cast<DWORD>(buffer_.size()), nullptr,
                    &overlapped_) &&
          GetLastError() != ERROR_IO_PENDING)
        return Failed(GetLastError());
    }
    pending_ = WaitForSingleObject(event_, static_cast<DWORD>(patience.count())) != WAIT_OBJECT_0;
    if (pending_) return Failed(WAIT_TIMEOUT);
    if (!GetOverlappedResult(handle_, &overlapped_, &bytes, FALSE)) return Failed(GetLastError());
    error_ = 0;
    return Bytes(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(bytes));
  }
  // Both return 0 or the error.
  DWORD Write(const Bytes& report) {
    OVERLAPPED overlapped{};
    overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const BOOL written =
        WriteFile(handle_, report.data(), static_cast<DWORD>(report.size()), nullptr, &overlapped);
    const DWORD error = written ? 0 : GetLastError();
    CloseHandle(overlapped.hEvent);
    return error;
  }
  DWORD SetFeature(Bytes report) {
    return HidD_SetFeature(handle_, report.data(), static_cast<ULONG>(report.size()))
               ? 0
               : GetLastError();
  }

 private:
  Bytes Failed(DWORD error) {
    error_ = error;
    return {};
  }

  const HANDLE handle_;
  DWORD error_;
  const HANDLE event_;
  bool pending_ = false;
  OVERLAPPED overlapped_{};
  Bytes buffer_ = Bytes(128);
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_KERNEL_HANDLE_H_
