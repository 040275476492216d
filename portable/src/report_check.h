// What every bus does with a report that a host writes, before its device sees it.
#ifndef PERILINK_PLATFORM_SRC_REPORT_CHECK_H_
#define PERILINK_PLATFORM_SRC_REPORT_CHECK_H_

#include <cstdint>
#include <span>
#include <vector>

#include "perilink_platform/error.h"

namespace perilink::platform {

// 0, or why a report of `size` bytes can't be sent where the longest has `length` (0: none is
// sent).
inline DWORD CheckReportSize(size_t size, size_t length) {
  if (length == 0) return ERROR_INVALID_FUNCTION;
  if (size == 0) return ERROR_INVALID_USER_BUFFER;
  return size > length ? ERROR_INVALID_PARAMETER : 0;
}

// The report with zeros up to `length`.
inline std::vector<uint8_t> PaddedReport(std::span<const uint8_t> report, size_t length) {
  std::vector<uint8_t> padded(report.begin(), report.end());
  padded.resize(length);
  return padded;
}

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_REPORT_CHECK_H_
