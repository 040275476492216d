#include "battery/saved_record.h"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "platform/handles.h"

namespace perilink {
namespace {

constexpr wchar_t kRegistryKey[] = L"Software\\DeviceBatteryOptimize";

// A short text in a fixed buffer: building a name or a value can't fail.
class ShortText {
 public:
  ShortText& Append(std::wstring_view text) {
    for (const wchar_t character : text)
      Append(character);
    return *this;
  }
  ShortText& AppendHex(uint8_t byte) {
    constexpr std::wstring_view kDigits = L"0123456789abcdef";
    return Append(kDigits[byte >> 4]).Append(kDigits[byte & 0x0F]);
  }
  ShortText& AppendDecimal(uint32_t number) {
    if (number >= 10) AppendDecimal(number / 10);
    return Append(static_cast<wchar_t>(L'0' + number % 10));
  }
  ShortText& Append(wchar_t character) {
    if (length_ + 1 < text_.size()) text_[length_++] = character;
    return *this;
  }

  const wchar_t* CString() const { return text_.data(); }
  const BYTE* Bytes() const { return reinterpret_cast<const BYTE*>(text_.data()); }
  DWORD ByteCount() const { return static_cast<DWORD>(length_ * sizeof(wchar_t)); }

 private:
  std::array<wchar_t, 32> text_{};
  size_t length_ = 0;
};

ShortText ValueName(const DeviceAddress& device) {
  ShortText name;
  name.Append(L"BatteryValue_");
  for (const uint8_t byte : device)
    name.AppendHex(byte);
  return name;
}

// The number modulo 2^32; nothing when a character is not a decimal digit. An empty text is 0.
std::optional<uint32_t> ParseDecimal(std::wstring_view text) {
  uint32_t number = 0;
  for (const wchar_t character : text) {
    if (character < L'0' || character > L'9') return std::nullopt;
    number = number * 10 + static_cast<uint32_t>(character - L'0');
  }
  return number;
}

UniqueRegistryKey OpenKey(REGSAM access) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, kRegistryKey, 0, access, &key) != ERROR_SUCCESS) return {};
  return UniqueRegistryKey(key);
}

UniqueRegistryKey OpenOrCreateKey() {
  UniqueRegistryKey key = OpenKey(KEY_SET_VALUE);
  if (key.Valid()) return key;
  HKEY created = nullptr;
  if (RegCreateKeyW(HKEY_CURRENT_USER, kRegistryKey, &created) == ERROR_SUCCESS)
    UniqueRegistryKey(created).Reset();
  return OpenKey(KEY_SET_VALUE);
}

}  // namespace

SavedRecord ParseSavedRecord(std::wstring_view text) {
  const size_t minus = text.find(L'-');
  if (minus == text.npos) return {};
  // A second minus sign is no digit, so more than two parts fail here too.
  const std::optional<uint32_t> time = ParseDecimal(text.substr(0, minus));
  const std::optional<uint32_t> level = ParseDecimal(text.substr(minus + 1));
  if (!time || !level) return {};
  return SavedRecord{*time, static_cast<uint8_t>(*level)};
}

SavedRecord ReadSavedRecord(const DeviceAddress& device) {
  const UniqueRegistryKey key = OpenKey(KEY_READ);
  if (!key.Valid()) return {};
  // Values need not end with a zero character, nor be texts at all.
  std::array<wchar_t, 256> text{};
  DWORD byte_count = sizeof(text);
  if (RegQueryValueExW(key.Get(), ValueName(device).CString(), nullptr, nullptr,
                       reinterpret_cast<BYTE*>(text.data()), &byte_count) != ERROR_SUCCESS)
    return {};
  const auto end = std::find(text.begin(), text.end(), L'\0');
  return ParseSavedRecord({text.data(), static_cast<size_t>(end - text.begin())});
}

void WriteSavedRecord(const DeviceAddress& device, int64_t calendar_seconds, uint8_t level) {
  const UniqueRegistryKey key = OpenOrCreateKey();
  if (!key.Valid()) return;
  const uint64_t seconds = static_cast<uint64_t>(calendar_seconds);
  ShortText data;
  data.AppendDecimal(static_cast<uint32_t>(seconds >> 32))
      .AppendDecimal(static_cast<uint32_t>(seconds))
      .Append(L'-')
      .AppendDecimal(level);
  // Without a terminating zero.
  RegSetValueExW(key.Get(), ValueName(device).CString(), 0, REG_SZ, data.Bytes(), data.ByteCount());
}

}  // namespace perilink
