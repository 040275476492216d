#include "common/files.h"

#include <windows.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace perilink::tools {
namespace {

namespace fs = std::filesystem;

constexpr auto kLockPatience = std::chrono::seconds(2);
constexpr auto kLockPause = std::chrono::milliseconds(20);

std::string ReasonNow() {
  switch (GetLastError()) {
    case ERROR_ACCESS_DENIED:
      return "no permission";
    case ERROR_PATH_NOT_FOUND:
    case ERROR_FILE_NOT_FOUND:
    case ERROR_INVALID_NAME:
      return "no such folder";
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      return "the disk is full";
    case ERROR_WRITE_PROTECT:
      return "the disk can't be written";
    case ERROR_SHARING_VIOLATION:
      return "another process uses the file";
    default:
      return "error " + std::to_string(GetLastError()) + " of the system";
  }
}

[[noreturn]] void FailToWrite(const std::string& name, const std::string& why) {
  throw FileError(name, "the file can't be written: " + why);
}

// Who made a link can't be told from it: none is followed.
void RequirePlain(const std::string& name) {
  const DWORD attributes = GetFileAttributesA(name.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return;
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) FailToWrite(name, "it is a folder");
  if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) FailToWrite(name, "it is read-only");
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) FailToWrite(name, "it is a link");
}

// A file of our own beside the target, under a name that nothing has; closed and gone at the end
// unless it has become the target.
class NewFile {
 public:
  explicit NewFile(const std::string& target) {
    for (unsigned number = 0; file_ == INVALID_HANDLE_VALUE && number < 1000; ++number) {
      name_ = target + "." + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(number);
      file_ = CreateFileA(name_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                          FILE_ATTRIBUTE_NORMAL, nullptr);
      if (file_ == INVALID_HANDLE_VALUE && GetLastError() != ERROR_FILE_EXISTS) {
        FailToWrite(target, ReasonNow());
      }
    }
    if (file_ == INVALID_HANDLE_VALUE) FailToWrite(target, "too many files beside it");
  }
  ~NewFile() {
    Close();
    DeleteFileA(name_.c_str());
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void Write(const std::string& target, const std::string& content) {
    DWORD written = 0;
    if (!::WriteFile(file_, content.data(), static_cast<DWORD>(content.size()), &written,
                     nullptr) ||
        written != content.size() || !FlushFileBuffers(file_)) {
      FailToWrite(target, ReasonNow());
    }
  }
  bool Become(const std::string& target, DWORD flags) {
    Close();
    return MoveFileExA(name_.c_str(), target.c_str(), flags | MOVEFILE_WRITE_THROUGH) != 0;
  }

 private:
  void Close() {
    if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
    file_ = INVALID_HANDLE_VALUE;
  }

  std::string name_;
  HANDLE file_ = INVALID_HANDLE_VALUE;
};

std::optional<std::string> FolderFrom(const char* variable) {
  const char* const folder = std::getenv(variable);
  if (folder == nullptr || folder[0] == '\0') return std::nullopt;
  return std::string(folder) + "\\perilink";
}

}  // namespace

void WriteWholeFile(const std::string& name, const std::string& content, Links) {
  RequirePlain(name);
  NewFile file(name);
  file.Write(name, content);
  if (!file.Become(name, MOVEFILE_REPLACE_EXISTING)) FailToWrite(name, ReasonNow());
}

void RequireWritable(const std::string& name, Links) {
  RequirePlain(name);
  const NewFile file(name);
}

bool CreateNewFile(const std::string& name, const std::string& content) {
  NewFile file(name);
  file.Write(name, content);
  if (file.Become(name, 0)) return true;
  if (GetLastError() != ERROR_ALREADY_EXISTS && GetLastError() != ERROR_FILE_EXISTS) {
    FailToWrite(name, ReasonNow());
  }
  return false;
}

struct FileLock::State {
  HANDLE file = INVALID_HANDLE_VALUE;
  ~State() { CloseHandle(file); }
};

// On a file of its own, which goes with it: the file itself is replaced while it is held.
FileLock::FileLock(const std::string& name) : state_(std::make_unique<State>()) {
  const auto end = std::chrono::steady_clock::now() + kLockPatience;
  while (std::chrono::steady_clock::now() < end) {
    state_->file = CreateFileA((name + ".lock").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                               FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (state_->file != INVALID_HANDLE_VALUE) return;
    std::this_thread::sleep_for(kLockPause);
  }
  throw FileError(name, "another process uses the file");
}

FileLock::~FileLock() = default;

std::optional<std::string> StateFolder() {
  return FolderFrom("LOCALAPPDATA");
}

std::optional<std::string> ConfigFolder() {
  return FolderFrom("APPDATA");
}

std::string DataFolder() {
  char program[MAX_PATH];
  const DWORD length = GetModuleFileNameA(nullptr, program, sizeof program);
  const fs::path path(std::string(program, length));
  return (path.parent_path().parent_path() / "share" / "perilink").string();
}

void MakeFolder(const std::string& name) {
  std::error_code error;
  fs::create_directories(name, error);
  if (error) throw FileError(name, "the folder can't be made: " + error.message());
}

}  // namespace perilink::tools
