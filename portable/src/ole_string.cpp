#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "call.h"
#include "ole_string.h"
#include "perilink_platform/ole.h"

namespace perilink::platform {
namespace {

// The length in bytes stands in the 4 bytes before the text, as on Windows. The block begins 4
// bytes further ahead.
constexpr size_t kPrefix = 8;

char* Block(BSTR text) {
  return reinterpret_cast<char*>(text) - kPrefix;
}

}  // namespace

BSTR AllocateString(const OLECHAR* text, size_t length) {
  if (length > (UINT32_MAX - kPrefix) / sizeof(OLECHAR) - 1) return nullptr;
  const size_t bytes = length * sizeof(OLECHAR);
  char* const block = static_cast<char*>(std::calloc(1, kPrefix + bytes + sizeof(OLECHAR)));
  if (block == nullptr) return nullptr;
  const auto size = static_cast<uint32_t>(bytes);
  std::memcpy(block + kPrefix - sizeof(size), &size, sizeof(size));
  if (text != nullptr && bytes != 0) std::memcpy(block + kPrefix, text, bytes);
  return reinterpret_cast<BSTR>(block + kPrefix);
}

}  // namespace perilink::platform

BSTR SysAllocString(const OLECHAR* text) {
  if (perilink::platform::CallMustFail("SysAllocString") || text == nullptr) return nullptr;
  return perilink::platform::AllocateString(text, std::wcslen(text));
}

BSTR SysAllocStringLen(const OLECHAR* text, UINT length) {
  if (perilink::platform::CallMustFail("SysAllocStringLen")) return nullptr;
  return perilink::platform::AllocateString(text, length);
}

void SysFreeString(BSTR text) {
  if (text != nullptr) std::free(perilink::platform::Block(text));
}

UINT SysStringLen(BSTR text) {
  if (text == nullptr) return 0;
  uint32_t bytes = 0;
  std::memcpy(&bytes, reinterpret_cast<const char*>(text) - sizeof(bytes), sizeof(bytes));
  return bytes / static_cast<UINT>(sizeof(OLECHAR));
}
