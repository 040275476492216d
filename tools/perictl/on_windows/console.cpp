#include "console.h"

#include <algorithm>

namespace perictl {
namespace {

constexpr size_t kMostPending = 4096;

// The bytes at the end that begin a character and don't end it.
size_t Unfinished(const std::string& text) {
  const size_t most = std::min<size_t>(text.size(), 3);
  for (size_t count = 1; count <= most; ++count) {
    const auto byte = static_cast<unsigned char>(text[text.size() - count]);
    if (byte < 0x80) return 0;
    if (byte < 0xC0) continue;
    const size_t length = byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
    return count < length ? count : 0;
  }
  return 0;
}

std::wstring Wide(const std::string& text) {
  const auto convert = [&](wchar_t* to, int count) {
    return MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), to, count);
  };
  std::wstring wide(static_cast<size_t>(convert(nullptr, 0)), L'\0');
  convert(wide.data(), static_cast<int>(wide.size()));
  return wide;
}

}  // namespace

ConsoleStream::ConsoleStream(std::ostream& stream, DWORD standard_handle)
    : stream_(stream), console_(GetStdHandle(standard_handle)) {
  DWORD mode = 0;
  if (GetConsoleMode(console_, &mode)) before_ = stream_.rdbuf(this);
}

ConsoleStream::~ConsoleStream() {
  if (before_ == nullptr) return;
  sync();
  stream_.rdbuf(before_);
}

ConsoleStream::int_type ConsoleStream::overflow(int_type unit) {
  const char byte = traits_type::to_char_type(unit);
  if (!traits_type::eq_int_type(unit, traits_type::eof())) xsputn(&byte, 1);
  return traits_type::not_eof(unit);
}

std::streamsize ConsoleStream::xsputn(const char* text, std::streamsize count) {
  pending_.append(text, static_cast<size_t>(count));
  return pending_.size() < kMostPending || sync() == 0 ? count : 0;
}

int ConsoleStream::sync() {
  const size_t unfinished = Unfinished(pending_);
  const std::wstring text = Wide(pending_.substr(0, pending_.size() - unfinished));
  pending_.erase(0, pending_.size() - unfinished);
  DWORD written = 0;
  for (size_t at = 0; at < text.size(); at += written) {
    const auto left = static_cast<DWORD>(text.size() - at);
    if (!WriteConsoleW(console_, text.data() + at, left, &written, nullptr) || written == 0)
      return -1;
  }
  return 0;
}

}  // namespace perictl
