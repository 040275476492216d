#include "perilink_platform/registry.h"

#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "call.h"
#include "handle_table.h"
#include "path.h"
#include "registry_store.h"

namespace perilink::platform {
namespace {

constexpr DWORD kLastType = 11;

class OpenKey final : public Object {
 public:
  OpenKey(std::wstring path, REGSAM access) : path_(std::move(path)), access_(access) {}
  const std::wstring& path() const { return path_; }
  bool Allows(REGSAM access) const { return (access_ & access) == access; }

 private:
  const std::wstring path_;
  const REGSAM access_;
};

std::shared_ptr<OpenKey> FindKey(HKEY key) {
  if (key == HKEY_CURRENT_USER) return std::make_shared<OpenKey>(L"", KEY_ALL_ACCESS);
  return HandleTable::Get().Find<OpenKey>(key);
}

HKEY AddKey(std::wstring path, REGSAM access) {
  return static_cast<HKEY>(
      HandleTable::Get().Add(std::make_shared<OpenKey>(std::move(path), access)));
}

// The path of `sub_key`, null or empty for the key itself; false if its name is none.
bool JoinPath(const std::wstring& path, LPCWSTR sub_key, std::wstring& joined) {
  joined = path;
  const std::wstring below = sub_key != nullptr ? sub_key : L"";
  if (below.empty()) return true;
  if (!IsKeyPath(below)) return false;
  joined += (path.empty() ? L"" : L"\\") + below;
  return true;
}

DWORD FindPath(const std::wstring& path, bool& exists) {
  return RegistryStore::Get().Read(
      [&](const RegistryTree& tree) { exists = tree.Find(path) != nullptr; });
}

}  // namespace
}  // namespace perilink::platform

using perilink::platform::FindKey;
using perilink::platform::InjectedError;
using perilink::platform::RegistryStore;
using perilink::platform::RegistryTree;
using perilink::platform::RegistryValue;

namespace {

LSTATUS Status(DWORD error) {
  return static_cast<LSTATUS>(error);
}

}  // namespace

LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR sub_key, DWORD options, REGSAM access, PHKEY result) try {
  if (const DWORD error = InjectedError("RegOpenKeyExW"); error != 0) return Status(error);
  const auto parent = FindKey(key);
  if (parent == nullptr) return Status(ERROR_INVALID_HANDLE);
  std::wstring path;
  if (result == nullptr || options != 0 || (access & ~KEY_ALL_ACCESS) != 0 ||
      !perilink::platform::JoinPath(parent->path(), sub_key, path))
    return Status(ERROR_INVALID_PARAMETER);
  bool exists = false;
  const DWORD error = perilink::platform::FindPath(path, exists);
  if (error != 0) return Status(error);
  if (!exists) return Status(ERROR_FILE_NOT_FOUND);
  *result = perilink::platform::AddKey(path, access);
  return Status(ERROR_SUCCESS);
} catch (const std::bad_alloc&) {
  return Status(ERROR_NOT_ENOUGH_MEMORY);
}

LSTATUS RegCreateKeyW(HKEY key, LPCWSTR sub_key, PHKEY result) try {
  if (const DWORD error = InjectedError("RegCreateKeyW"); error != 0) return Status(error);
  const auto parent = FindKey(key);
  if (parent == nullptr) return Status(ERROR_INVALID_HANDLE);
  std::wstring path;
  if (result == nullptr || !perilink::platform::JoinPath(parent->path(), sub_key, path))
    return Status(ERROR_INVALID_PARAMETER);
  bool exists = false;
  DWORD error = perilink::platform::FindPath(path, exists);
  if (error == 0 && !exists)
    error = RegistryStore::Get().Update([&path](RegistryTree& tree) { tree.Ensure(path); });
  if (error != 0) return Status(error);
  *result = perilink::platform::AddKey(path, KEY_ALL_ACCESS);
  return Status(ERROR_SUCCESS);
} catch (const std::bad_alloc&) {
  return Status(ERROR_NOT_ENOUGH_MEMORY);
}

LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                         LPDWORD size) try {
  if (const DWORD error = InjectedError("RegQueryValueExW"); error != 0) return Status(error);
  const auto opened = FindKey(key);
  if (opened == nullptr) return Status(ERROR_INVALID_HANDLE);
  if (reserved != nullptr || (data != nullptr && size == nullptr))
    return Status(ERROR_INVALID_PARAMETER);
  if (!opened->Allows(KEY_QUERY_VALUE)) return Status(ERROR_ACCESS_DENIED);
  const std::wstring lower_name =
      perilink::platform::LowerAscii(std::wstring(name != nullptr ? name : L""));
  RegistryValue value;
  bool exists = false;
  const DWORD error = RegistryStore::Get().Read([&](const RegistryTree& tree) {
    const auto* const node = tree.Find(opened->path());
    if (node == nullptr) return;
    const auto found = node->values.find(lower_name);
    exists = found != node->values.end();
    if (exists) value = found->second;
  });
  if (error != 0) return Status(error);
  if (!exists) return Status(ERROR_FILE_NOT_FOUND);
  if (type != nullptr) *type = value.type;
  if (size == nullptr) return Status(ERROR_SUCCESS);
  const DWORD room = *size;
  *size = static_cast<DWORD>(value.data.size());
  if (data == nullptr) return Status(ERROR_SUCCESS);
  if (value.data.size() > room) return Status(ERROR_MORE_DATA);
  if (!value.data.empty()) std::memcpy(data, value.data.data(), value.data.size());
  return Status(ERROR_SUCCESS);
} catch (const std::bad_alloc&) {
  return Status(ERROR_NOT_ENOUGH_MEMORY);
}

LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                       DWORD size) try {
  if (const DWORD error = InjectedError("RegSetValueExW"); error != 0) return Status(error);
  const auto opened = FindKey(key);
  if (opened == nullptr) return Status(ERROR_INVALID_HANDLE);
  if (reserved != 0 || type > perilink::platform::kLastType) return Status(ERROR_INVALID_PARAMETER);
  if (data == nullptr && size != 0) return Status(ERROR_NOACCESS);
  if (!opened->Allows(KEY_SET_VALUE)) return Status(ERROR_ACCESS_DENIED);
  if (size > perilink::platform::kLargestRegistry) return Status(ERROR_FILE_TOO_LARGE);
  RegistryValue value{name != nullptr ? name : L"", type, {}};
  if (size != 0) value.data.assign(data, data + size);
  return Status(RegistryStore::Get().Update([&](RegistryTree& tree) {
    tree.Ensure(opened->path()).values[perilink::platform::LowerAscii(value.name)] = value;
  }));
} catch (const std::bad_alloc&) {
  return Status(ERROR_NOT_ENOUGH_MEMORY);
}

LSTATUS RegCloseKey(HKEY key) {
  const DWORD injected = InjectedError("RegCloseKey");
  if (key != HKEY_CURRENT_USER &&
      !perilink::platform::HandleTable::Get().Close<perilink::platform::OpenKey>(key))
    return Status(ERROR_INVALID_HANDLE);
  return Status(injected);
}
