#include "driver.h"

#include <string>
#include <system_error>

namespace perilink::sim {
namespace {

constexpr ULONGLONG kPatienceMs = 60'000;

[[noreturn]] void Fail(const char* what) {
  throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), what);
}

HANDLE OpenFile() {
  return CreateFileW(L"\\\\.\\" HID_BUS_NAME, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                     OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
}

std::wstring DriverFile() {
  wchar_t program[MAX_PATH] = L"";
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  const std::wstring path = program;
  return path.substr(0, path.rfind(L'\\') + 1) + L"perilink_bus.sys";
}

// In the group of Wine's own HID drivers, whose process it shares: what a device is made of passes
// from driver to driver by its address.
void Start() {
  const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
  if (manager == nullptr) Fail("no service manager");
  SC_HANDLE service =
      CreateServiceW(manager, HID_BUS_NAME, HID_BUS_NAME, SERVICE_ALL_ACCESS, SERVICE_KERNEL_DRIVER,
                     SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, DriverFile().c_str(),
                     L"WinePlugPlay", nullptr, nullptr, nullptr, nullptr);
  if (service == nullptr) service = OpenServiceW(manager, HID_BUS_NAME, SERVICE_ALL_ACCESS);
  // The manager is locked while the system's own services still start.
  const ULONGLONG end = GetTickCount64() + kPatienceMs;
  while (!StartServiceW(service, 0, nullptr) && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) {
    if (GetLastError() != ERROR_SERVICE_DATABASE_LOCKED || GetTickCount64() > end)
      Fail("the bus driver doesn't start");
    Sleep(20);
  }
  CloseServiceHandle(service);
  CloseServiceHandle(manager);
}

}  // namespace

bool Driver::Call(DWORD code, const void* in, DWORD in_size, void* out, DWORD out_size) const {
  OVERLAPPED overlapped{};
  overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  DWORD bytes = 0;
  // The system's function takes its input as if it wrote to it.
  bool done = DeviceIoControl(file_, code, const_cast<void*>(in), in_size, out, out_size, &bytes,
                              &overlapped);
  if (!done && GetLastError() == ERROR_IO_PENDING)
    done = GetOverlappedResult(file_, &overlapped, &bytes, TRUE);
  CloseHandle(overlapped.hEvent);
  return done;
}

Driver OpenDriver() {
  HANDLE file = OpenFile();
  if (file == INVALID_HANDLE_VALUE) {
    Start();
    file = OpenFile();
  }
  if (file == INVALID_HANDLE_VALUE) Fail("the bus driver can't be opened");
  return Driver(file);
}

}  // namespace perilink::sim
