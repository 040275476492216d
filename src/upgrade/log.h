// The upgrade log: lines in memory for the life of the process, most of them also appended to
// "dll_log.txt" in the current directory while the host has switched that on.
//
// Any thread may call these. The lock is held for an append, a copy or a clear alone; lines of
// several threads stand in the order in which they came.
#ifndef PERILINK_SRC_UPGRADE_LOG_H_
#define PERILINK_SRC_UPGRADE_LOG_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32.h"

namespace perilink {

struct UsbUpgradeFile;

// Switches the file on or off; off at load.
void SetSaveLogFile(bool save);

// Into memory unchanged, and into the file.
void LogLine(const std::wstring& text);

// Into memory only: the time, ":  ", the text and the first 8 bytes of the data in hexadecimal,
// each followed by a space.
void LogHexLine(std::wstring_view text, std::span<const uint8_t> data);

// The record's fields, some lines into memory, some into the file, most into both.
void LogUpgradeFile(const UsbUpgradeFile& record);

// Into the file only, while it is switched on. Characters beyond 8 bits become '?'. A file that
// can't be opened loses the line.
void AppendLogFile(std::wstring_view text);

// Empties the lines in memory and says so in the file.
void ResetUpgradeLog();

// All lines in memory, oldest first.
std::vector<std::wstring> CopyUpgradeLog();

// "2025-01-07 09:03:05 007"
std::wstring FormatTimestamp(const SYSTEMTIME& time);

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_LOG_H_
