#include "perilink_platform/setupapi.h"

#include <cstring>
#include <cwctype>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "active_bus.h"
#include "call.h"
#include "handle_table.h"
#include "hid_guid.h"

namespace perilink::platform {
namespace {

class DeviceInfoSet final : public Object {
 public:
  explicit DeviceInfoSet(std::vector<std::wstring> paths) : paths_(std::move(paths)) {}

  size_t size() const { return paths_.size(); }
  // The path of an interface record that this set has filled; null for any other record.
  const std::wstring* PathOf(const SP_DEVICE_INTERFACE_DATA& data) const {
    const uintptr_t number = data.Reserved;  // counted from 1
    return number == 0 || number > paths_.size() ? nullptr : &paths_[number - 1];
  }

 private:
  const std::vector<std::wstring> paths_;
};

std::shared_ptr<DeviceInfoSet> FindSet(HDEVINFO set) {
  return HandleTable::Get().Find<DeviceInfoSet>(set);
}

bool IsRecord(const SP_DEVICE_INTERFACE_DATA* data) {
  return data != nullptr && data->cbSize == sizeof(SP_DEVICE_INTERFACE_DATA);
}

// The start of the paths of a device's interfaces, in lower case.
std::wstring PathStart(std::wstring instance_id) {
  for (wchar_t& unit : instance_id)
    unit = unit == L'\\' ? L'#' : static_cast<wchar_t>(std::towlower(static_cast<wint_t>(unit)));
  return L"\\\\?\\" + instance_id + L"#";
}

}  // namespace
}  // namespace perilink::platform

using perilink::platform::CallMustFail;
using perilink::platform::Fail;
using perilink::platform::FindSet;
using perilink::platform::HandleTable;

HDEVINFO SetupDiGetClassDevsW(const GUID* guid, PCWSTR enumerator, HWND parent, DWORD flags) try {
  if (CallMustFail("SetupDiGetClassDevsW")) return INVALID_HANDLE_VALUE;
  if (guid == nullptr || !(*guid == perilink::platform::kHidGuid) || parent != nullptr)
    return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
  if (flags != (DIGCF_PRESENT | DIGCF_DEVICEINTERFACE))
    return Fail(ERROR_INVALID_FLAGS, INVALID_HANDLE_VALUE);
  perilink::platform::HidBus* const bus = perilink::platform::ActiveBus();
  if (bus == nullptr) return Fail(ERROR_NO_SYSTEM_RESOURCES, INVALID_HANDLE_VALUE);
  std::vector<std::wstring> paths = bus->PresentInterfaces();
  if (enumerator != nullptr) {
    std::erase_if(paths, [start = perilink::platform::PathStart(enumerator)](const auto& path) {
      return !path.starts_with(start);
    });
  }
  return HandleTable::Get().Add(
      std::make_shared<perilink::platform::DeviceInfoSet>(std::move(paths)));
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY, INVALID_HANDLE_VALUE);
}

BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, PSP_DEVINFO_DATA device, const GUID* guid,
                                 DWORD index, PSP_DEVICE_INTERFACE_DATA data) {
  if (CallMustFail("SetupDiEnumDeviceInterfaces")) return FALSE;
  const auto paths = FindSet(set);
  if (paths == nullptr) return Fail(ERROR_INVALID_HANDLE, FALSE);
  if (device != nullptr || guid == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
  if (!perilink::platform::IsRecord(data)) return Fail(ERROR_INVALID_USER_BUFFER, FALSE);
  if (!(*guid == perilink::platform::kHidGuid) || index >= paths->size())
    return Fail(ERROR_NO_MORE_ITEMS, FALSE);
  data->InterfaceClassGuid = *guid;
  data->Flags = SPINT_ACTIVE;
  data->Reserved = uintptr_t{index} + 1;
  return TRUE;
}

BOOL SetupDiGetDeviceInterfaceDetailW(HDEVINFO set, PSP_DEVICE_INTERFACE_DATA data,
                                      PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD size,
                                      PDWORD required, PSP_DEVINFO_DATA device) {
  if (CallMustFail("SetupDiGetDeviceInterfaceDetailW")) return FALSE;
  const auto paths = FindSet(set);
  if (paths == nullptr) return Fail(ERROR_INVALID_HANDLE, FALSE);
  if (device != nullptr || !perilink::platform::IsRecord(data))
    return Fail(ERROR_INVALID_PARAMETER, FALSE);
  const std::wstring* const path = paths->PathOf(*data);
  if (path == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
  const bool fits =
      detail == nullptr ? size == 0 : size >= sizeof(*detail) && detail->cbSize == sizeof(*detail);
  if (!fits) return Fail(ERROR_INVALID_USER_BUFFER, FALSE);
  const size_t bytes = (path->size() + 1) * sizeof(WCHAR);
  const auto needed =
      static_cast<DWORD>(offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath) + bytes);
  if (required != nullptr) *required = needed;
  if (size < needed) return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  std::memcpy(
      reinterpret_cast<char*>(detail) + offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath),
      path->c_str(), bytes);
  return TRUE;
}

BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set) {
  const DWORD injected = perilink::platform::InjectedError("SetupDiDestroyDeviceInfoList");
  if (!HandleTable::Get().Close<perilink::platform::DeviceInfoSet>(set))
    return Fail(ERROR_INVALID_HANDLE, FALSE);
  return injected == 0 ? TRUE : Fail(injected, FALSE);
}
