#include "platform/ansi_text.h"

#include <climits>

#include "platform/win32.h"

namespace perilink {

std::wstring NarrowToWide(std::string_view text) {
  // The system takes a length of 0 for an error.
  if (text.empty() || text.size() > INT_MAX) return {};
  const int size = static_cast<int>(text.size());
  const int wide_size = MultiByteToWideChar(CP_ACP, 0, text.data(), size, nullptr, 0);
  if (wide_size <= 0) return {};
  std::wstring wide(static_cast<size_t>(wide_size), L'\0');
  const int stored = MultiByteToWideChar(CP_ACP, 0, text.data(), size, wide.data(), wide_size);
  wide.resize(stored > 0 ? static_cast<size_t>(stored) : 0);
  return wide;
}

std::string WideToNarrow(std::wstring_view text) {
  if (text.empty() || text.size() > INT_MAX) return {};
  const int size = static_cast<int>(text.size());
  const int narrow_size =
      WideCharToMultiByte(CP_ACP, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
  if (narrow_size <= 0) return {};
  std::string narrow(static_cast<size_t>(narrow_size), '\0');
  const int stored = WideCharToMultiByte(CP_ACP, 0, text.data(), size, narrow.data(), narrow_size,
                                         nullptr, nullptr);
  narrow.resize(stored > 0 ? static_cast<size_t>(stored) : 0);
  return narrow;
}

}  // namespace perilink
