#include "interop/returned_lists.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "perilink/finder.h"

namespace perilink {
namespace {

struct BstrFree {
  void operator()(wchar_t* text) const { SysFreeString(text); }
};
struct ArrayDestroy {
  void operator()(SAFEARRAY* array) const { SafeArrayDestroy(array); }
};
using UniqueBstr = std::unique_ptr<wchar_t, BstrFree>;
using UniqueArray = std::unique_ptr<SAFEARRAY, ArrayDestroy>;

// A copy from malloc; null when memory runs out. Text that can't be converted becomes empty.
char* ToNarrowString(const std::wstring& text) {
  const int size = WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr);
  // The terminating NUL is part of the size.
  char* narrow = static_cast<char*>(std::malloc(size > 0 ? static_cast<size_t>(size) : 1));
  if (narrow == nullptr) return nullptr;
  if (size <= 0 ||
      WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, narrow, size, nullptr, nullptr) <= 0)
    narrow[0] = '\0';
  return narrow;
}

UniqueArray CreateArray(VARTYPE type, size_t count) {
  SAFEARRAYBOUND bound{};
  bound.cElements = static_cast<ULONG>(count);
  return UniqueArray(SafeArrayCreate(type, 1, &bound));
}

// Stores a copy of what `element` points to.
bool PutElement(SAFEARRAY* array, size_t index, void* element) {
  LONG indices[1] = {static_cast<LONG>(index)};
  return SafeArrayPutElement(array, indices, element) == S_OK;
}

}  // namespace

char** ToNarrowArray(const std::vector<std::wstring>& list, uint32_t* count) noexcept {
  *count = 0;
  char** array = static_cast<char**>(std::malloc(list.size() * sizeof(char*)));
  if (array == nullptr) return nullptr;
  int32_t stored = 0;
  for (const std::wstring& text : list) {
    char* narrow = ToNarrowString(text);
    if (narrow == nullptr) {
      UsbFinderC_Free(array, stored);
      return nullptr;
    }
    array[stored++] = narrow;
  }
  *count = static_cast<uint32_t>(stored);
  return array;
}

SAFEARRAY* ToBstrArray(const std::vector<std::wstring>& list) noexcept {
  UniqueArray array = CreateArray(VT_BSTR, list.size());
  if (!array) return nullptr;
  for (size_t i = 0; i < list.size(); ++i) {
    const UniqueBstr text(SysAllocString(list[i].c_str()));
    if (!text || !PutElement(array.get(), i, text.get())) return nullptr;
  }
  return array.release();
}

SAFEARRAY* ToByteArray(std::span<const uint8_t> bytes) noexcept {
  UniqueArray array = CreateArray(VT_UI1, bytes.size());
  if (!array || bytes.empty()) return array.release();
  void* target = nullptr;
  if (SafeArrayAccessData(array.get(), &target) != S_OK) return nullptr;
  std::memcpy(target, bytes.data(), bytes.size());
  SafeArrayUnaccessData(array.get());
  return array.release();
}

}  // namespace perilink

void UsbFinderC_Free(char** list, int32_t count) {
  if (list == nullptr) return;
  for (int32_t i = 0; i < count; ++i)
    std::free(list[i]);
  std::free(list);
}
