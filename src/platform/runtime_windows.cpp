#include <cstdlib>
#include <ctime>
#include <string>

#include "platform/handles.h"
#include "platform/runtime.h"

namespace perilink {
namespace {

bool IsPlainFile(HANDLE file) {
  BY_HANDLE_FILE_INFORMATION about;
  return GetFileType(file) == FILE_TYPE_DISK && GetFileInformationByHandle(file, &about) &&
         (about.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
}

}  // namespace

int64_t MonotonicMicros() {
  // Both calls always succeed, and the frequency is fixed while the system runs.
  static const int64_t frequency = [] {
    LARGE_INTEGER ticks_per_second;
    QueryPerformanceFrequency(&ticks_per_second);
    return ticks_per_second.QuadPart;
  }();
  constexpr int64_t kMicrosPerSecond = 1'000'000;
  LARGE_INTEGER ticks;
  QueryPerformanceCounter(&ticks);
  // In two parts, so that nothing overflows however long the system has run.
  return ticks.QuadPart / frequency * kMicrosPerSecond +
         ticks.QuadPart % frequency * kMicrosPerSecond / frequency;
}

int64_t CalendarTime() {
  return _time64(nullptr);
}

void SeedRandom(uint32_t seed) {
  srand(seed);
}
int NextRandom() {
  return rand();
}

bool AppendLineShared(const char* file_name, std::string_view text) {
  // A link is opened itself, not what it leads to.
  const UniqueFile file(CreateFileA(file_name, FILE_APPEND_DATA | FILE_READ_ATTRIBUTES,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  if (!file.Valid() || !IsPlainFile(file.Get())) return false;
  // One write, so that the lines of several writers do not mix.
  const std::string line = std::string(text) + "\r\n";
  DWORD written = 0;
  return WriteFile(file.Get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr) !=
             FALSE &&
         written == line.size();
}

}  // namespace perilink
