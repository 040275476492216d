#include "transport/discovery.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cwctype>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

#include "perilink/finder.h"
#include "perilink/protocol.h"
#include "platform/ansi_text.h"
#include "platform/guard.h"
#include "platform/handles.h"

namespace perilink {
namespace {

// Keys that are built from ids are formatted as narrow text of at most this length.
constexpr size_t kKeyCapacity = 255;

using Detail = SP_DEVICE_INTERFACE_DETAIL_DATA_W;

// The path in a detail record of `size` bytes.
std::wstring PathIn(const Detail& detail, DWORD size) {
  const wchar_t* path = detail.DevicePath;
  const size_t capacity = (size - offsetof(Detail, DevicePath)) / sizeof(wchar_t);
  return std::wstring(path, std::find(path, path + capacity, L'\0'));
}

// Nullopt when the system can't tell the path, or when `size` bytes are too few for it: `needed` is
// then the number of bytes that it takes.
std::optional<std::wstring> InterfacePath(HDEVINFO set, SP_DEVICE_INTERFACE_DATA& item,
                                          Detail* detail, DWORD size, DWORD& needed) {
  // The size of the fixed part, not of the buffer.
  detail->cbSize = sizeof(Detail);
  if (!SetupDiGetDeviceInterfaceDetailW(set, &item, detail, size, &needed, nullptr))
    return std::nullopt;
  return PathIn(*detail, size);
}

// Most paths have 80 to 120 characters: one call and one allocation, the text's, are enough.
std::optional<std::wstring> InterfacePath(HDEVINFO set, SP_DEVICE_INTERFACE_DATA& item) {
  constexpr size_t kUsualSize = 1024;
  alignas(Detail) std::array<std::byte, kUsualSize> usual{};
  DWORD needed = 0;
  auto path = InterfacePath(set, item, reinterpret_cast<Detail*>(usual.data()), kUsualSize, needed);
  if (path || needed <= kUsualSize) return path;
  const DWORD size = needed;
  std::vector<std::max_align_t> buffer(size / sizeof(std::max_align_t) + 1);
  return InterfacePath(set, item, reinterpret_cast<Detail*>(buffer.data()), size, needed);
}

// Calls `visit` with each present path in the system's order, or with those of the device of that
// instance id, until it returns false. False when a call failed before the last one.
template <typename Visit>
bool VisitHidPaths(Visit visit, const wchar_t* device = nullptr) {
  GUID hid;
  HidD_GetHidGuid(&hid);
  const UniqueDeviceInfoSet set(
      SetupDiGetClassDevsW(&hid, device, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE));
  if (!set.Valid()) return false;
  for (DWORD index = 0;; ++index) {
    SP_DEVICE_INTERFACE_DATA item{};
    item.cbSize = sizeof item;
    if (!SetupDiEnumDeviceInterfaces(set.Get(), nullptr, &hid, index, &item))
      return GetLastError() == ERROR_NO_MORE_ITEMS;
    std::optional<std::wstring> path = InterfacePath(set.Get(), item);
    if (!path) return false;
    if (!visit(std::move(*path))) return true;
  }
}

// False when the enumeration failed: `paths` is what it found until then.
bool CollectHidPaths(HidPathList& paths) {
  return VisitHidPaths([&paths](std::wstring path) {
    paths.push_back(std::move(path));
    return true;
  });
}

// Of the device that an interface with this path belongs to, whose path the system makes of it:
// \\?\hid#a#b#{class} is one of hid\a\b. Empty for anything else.
std::wstring InstanceId(const std::wstring& path) {
  const std::wstring_view start = L"\\\\?\\";
  const size_t end = path.rfind(L"#{");
  if (!path.starts_with(start) || end == path.npos) return {};
  std::wstring id = path.substr(start.size(), end - start.size());
  std::ranges::replace(id, L'#', L'\\');
  return id;
}

std::wstring LowerCase(std::wstring text) {
  for (wchar_t& unit : text)
    unit = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(unit)));
  return text;
}

// A DeviceKey as ids are inserted into it: up to a NUL, in the ANSI code page, cut to the capacity.
// An id that the code page can't hold makes no key: a replaced character could match a stranger.
std::optional<std::wstring> MakeKey(const std::wstring& text) {
  std::string narrow = WideToNarrow(text);
  if (NarrowToWide(narrow) != text) return std::nullopt;
  if (narrow.size() <= kKeyCapacity) return text;
  narrow.resize(kKeyCapacity);
  return NarrowToWide(narrow);
}

std::optional<std::wstring> MakeIdKey(const std::wstring& vendor, const std::wstring& product,
                                      std::wstring_view suffix) {
  std::wstring key = L"vid_";
  key.append(LowerCase(vendor).c_str()).append(L"&pid_").append(LowerCase(product).c_str());
  return MakeKey(key.append(suffix));
}

// "mi_01&col05" for 1 and 5.
std::wstring InterfaceKey(int32_t interface_number, int32_t collection_number) {
  char text[40];
  const int length =
      std::snprintf(text, sizeof text, "mi_%02d&col%02d", interface_number, collection_number);
  return std::wstring(text, text + length);
}

// The paths that contain the key, in order; none without a key.
HidPathList Matching(HidPathList paths, const std::optional<std::wstring>& key) {
  if (!key) return {};
  std::erase_if(paths,
                [&](const std::wstring& path) { return path.find(*key) == std::wstring::npos; });
  return paths;
}

// The caller's list is replaced when the search is over, so that its texts may be its own elements.
template <typename Search>
void Replace(HidPathList& list, Search search) noexcept {
  HidPathList found;
  Guarded([&] { found = search(); });
  list = std::move(found);
}

}  // namespace

HidPathList EnumerateHidPaths() {
  HidPathList paths;
  CollectHidPaths(paths);
  return paths;
}

HidPathList FindHidPaths(const std::wstring& vendor, const std::wstring& product) {
  return Matching(EnumerateHidPaths(), MakeIdKey(vendor, product, L""));
}

HidPathList FindHidPathsByKey(const std::wstring& key) {
  if (key.empty()) return {};
  return Matching(EnumerateHidPaths(), LowerCase(key));
}

std::optional<HidPathList> FindAllHidPathsByKey(const std::wstring& key) {
  HidPathList paths;
  if (key.empty()) return paths;
  if (!CollectHidPaths(paths)) return std::nullopt;
  return Matching(std::move(paths), LowerCase(key));
}

Presence FindPresence(const std::wstring& key) {
  if (key.empty()) return Presence::kAbsent;
  const std::wstring lower = LowerCase(key);
  bool found = false;
  const auto look = [&](const std::wstring& path) {
    found = path.find(lower) != std::wstring::npos;
    return !found;
  };
  // One device takes a small part of the time of all. That it isn't found so proves nothing.
  const std::wstring device = InstanceId(lower);
  if (!device.empty()) VisitHidPaths(look, device.c_str());
  const bool complete = found || VisitHidPaths(look);
  if (found) return Presence::kPresent;
  return complete ? Presence::kAbsent : Presence::kUnknown;
}

HidPathList FindHidPathsByDeviceId(const std::wstring& vendor, const std::wstring& product,
                                   int32_t interface_number, int32_t collection_number) {
  HidPathList candidates = FindHidPaths(vendor, product);
  const std::wstring suffix = InterfaceKey(interface_number, collection_number);
  // Without a product the two halves of the key are apart in the path.
  if (product.empty()) return Matching(std::move(candidates), suffix);
  return Matching(std::move(candidates), MakeIdKey(vendor, product, L"&" + suffix));
}

}  // namespace perilink

using perilink::HidPathList;
using perilink::Replace;

void UsbFinder_EnumHidDeviceList(HidPathList& list) {
  Replace(list, perilink::EnumerateHidPaths);
}

void UsbFinder_FindHidDevices(const std::wstring& vendor_id, const std::wstring& product_id,
                              HidPathList& list) {
  Replace(list, [&] { return perilink::FindHidPaths(vendor_id, product_id); });
}

void UsbFinder_FindHidDevicesByKey(const std::wstring& key, HidPathList& list) {
  Replace(list, [&] { return perilink::FindHidPathsByKey(key); });
}

void UsbFinder_FindHidDevicesByDeviceId(const std::wstring& vendor_id,
                                        const std::wstring& product_id, int32_t interface_number,
                                        int32_t collection_number, HidPathList& list) {
  Replace(list, [&] {
    return perilink::FindHidPathsByDeviceId(vendor_id, product_id, interface_number,
                                            collection_number);
  });
}

void UsbFinder_FindHidDevicesByDefaultDeviceId(const std::wstring& vendor_id,
                                               const std::wstring& product_id, HidPathList& list) {
  Replace(list, [&] {
    return perilink::FindHidPathsByDeviceId(vendor_id, product_id, PERILINK_DEFAULT_INTERFACE,
                                            PERILINK_DEFAULT_COLLECTION);
  });
}
