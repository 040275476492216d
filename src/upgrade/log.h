// The upgrade log: lines in memory, the last PERILINK_LOG_LIMIT of them, for the life of the
// process; most of them are also appended to "dll_log.txt" in the current directory while the host
// has switched that on.
//
// Any thread may call these. The lock is held for an append, a copy or a clear alone; lines of
// several threads stand in the order in which they came. A line that can't be kept is lost: an
// upgrade goes on without it.
#ifndef PERILINK_SRC_UPGRADE_LOG_H_
#define PERILINK_SRC_UPGRADE_LOG_H_

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32.h"

namespace perilink {

struct UsbUpgradeFile;

// A piece of a line: a text, which is not copied, or a number, which is written in decimal.
struct LogPart {
  LogPart(std::wstring_view part) : text(part) {}
  LogPart(const std::wstring& part) : text(part) {}
  LogPart(const wchar_t* part) : text(part) {}
  template <std::integral Number>
  LogPart(Number part) : is_number(true), number(static_cast<int64_t>(part)) {}

  std::wstring_view text;
  bool is_number = false;
  int64_t number = 0;
};

// Switches the file on or off; off at load.
void SetSaveLogFile(bool save);

// One line of texts and numbers, into memory unchanged and into the file.
void LogParts(std::initializer_list<LogPart> parts) noexcept;
template <typename... Parts>
void LogLine(const Parts&... parts) noexcept {
  LogParts({LogPart(parts)...});
}

// Into memory only: the time, ":  ", the text and the first 8 bytes of the data in hexadecimal,
// each followed by a space.
void LogHexLine(std::wstring_view text, std::span<const uint8_t> data) noexcept;

// The record's fields, some lines into memory, some into the file, most into both.
void LogUpgradeFile(const UsbUpgradeFile& record) noexcept;

// Into the file only, while it is switched on. Characters that are no printable 8-bit ones become
// '?'. A file that can't be opened, or is no plain file, loses the line.
void AppendLogFile(std::wstring_view text) noexcept;

// Empties the lines in memory and says so in the file.
void ResetUpgradeLog();

// All lines in memory, oldest first.
std::vector<std::wstring> CopyUpgradeLog();

// "2025-01-07 09:03:05 007"
std::wstring FormatTimestamp(const SYSTEMTIME& time);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_LOG_H_
