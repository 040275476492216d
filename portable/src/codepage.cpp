#include "perilink_platform/codepage.h"

#include <cstring>
#include <cwchar>

#include "call.h"
#include "utf8.h"

namespace perilink::platform {
namespace {

// 0 when the arguments are fine.
DWORD CheckArguments(UINT code_page, DWORD flags, const void* source, int source_length,
                     const void* target, int target_size) {
  if (code_page != CP_ACP && code_page != CP_UTF8) return ERROR_INVALID_PARAMETER;
  if (source == nullptr || source_length == 0 || source_length < -1) return ERROR_INVALID_PARAMETER;
  if (target_size < 0 || (target_size > 0 && target == nullptr)) return ERROR_INVALID_PARAMETER;
  if (source == target) return ERROR_INVALID_PARAMETER;
  return flags == 0 ? 0 : ERROR_INVALID_FLAGS;
}

// Where converted units go: stored while there is room, counted in any case.
template <typename Unit>
class Target {
 public:
  Target(Unit* units, int size) : units_(units), size_(static_cast<size_t>(size)) {}

  void Put(Unit unit) {
    if (count_ < size_) units_[count_] = unit;
    ++count_;
  }

  // What the call returns.
  int Finish() const {
    if (size_ != 0 && count_ > size_) return Fail(ERROR_INSUFFICIENT_BUFFER, 0);
    if (count_ > INT32_MAX) return Fail(ERROR_INVALID_PARAMETER, 0);
    return static_cast<int>(count_);
  }

 private:
  Unit* const units_;
  const size_t size_;
  size_t count_ = 0;
};

}  // namespace
}  // namespace perilink::platform

int MultiByteToWideChar(UINT code_page, DWORD flags, LPCCH source, int source_length, LPWSTR target,
                        int target_size) {
  namespace platform = perilink::platform;
  if (platform::CallMustFail("MultiByteToWideChar")) return 0;
  const DWORD error =
      platform::CheckArguments(code_page, flags, source, source_length, target, target_size);
  if (error != 0) return platform::Fail(error, 0);
  const auto* text = reinterpret_cast<const uint8_t*>(source);
  const size_t length =
      source_length < 0 ? std::strlen(source) + 1 : static_cast<size_t>(source_length);
  platform::Target<WCHAR> out(target, target_size);
  for (const uint8_t* const end = text + length; text != end;)
    out.Put(static_cast<WCHAR>(platform::TakeUtf8(text, end)));
  return out.Finish();
}

int WideCharToMultiByte(UINT code_page, DWORD flags, LPCWCH source, int source_length, LPSTR target,
                        int target_size, LPCCH default_char, LPBOOL used_default_char) {
  namespace platform = perilink::platform;
  if (platform::CallMustFail("WideCharToMultiByte")) return 0;
  if (default_char != nullptr || used_default_char != nullptr)
    return platform::Fail(ERROR_INVALID_PARAMETER, 0);
  const DWORD error =
      platform::CheckArguments(code_page, flags, source, source_length, target, target_size);
  if (error != 0) return platform::Fail(error, 0);
  const size_t length =
      source_length < 0 ? std::wcslen(source) + 1 : static_cast<size_t>(source_length);
  platform::Target<char> out(target, target_size);
  for (size_t i = 0; i < length; ++i) {
    char bytes[4];
    const int count = platform::EncodeUtf8(static_cast<char32_t>(source[i]), bytes);
    for (int k = 0; k < count; ++k)
      out.Put(bytes[k]);
  }
  return out.Finish();
}
