#include "common/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace perilink::tools {
namespace {

namespace fs = std::filesystem;

constexpr int kMostLinks = 40;
constexpr auto kLockPatience = std::chrono::seconds(2);
constexpr auto kLockPause = std::chrono::milliseconds(20);

[[noreturn]] void FailToWrite(const std::string& name, const std::string& why) {
  throw FileError(name, "the file can't be written: " + why);
}
[[noreturn]] void FailToWrite(const std::string& name, int error) {
  FailToWrite(name, FileReason(error, true));
}

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }

 private:
  const int number_;
};

std::string FolderOf(const std::string& name) {
  const fs::path folder = fs::path(name).parent_path();
  return folder.empty() ? "." : folder.string();
}

// Where the file itself stands, or shall stand.
struct Target {
  std::string name;
  bool exists = false;
  struct stat status {};
};

Target FindTarget(const std::string& name, Links links) {
  Target target{name, false, {}};
  for (int hops = 0; hops < kMostLinks; ++hops) {
    if (lstat(target.name.c_str(), &target.status) != 0) {
      if (errno != ENOENT) FailToWrite(name, errno);
      return target;
    }
    if (!S_ISLNK(target.status.st_mode)) {
      target.exists = true;
      return target;
    }
    if (links == Links::kNone) FailToWrite(name, "it is a link");
    if (target.status.st_uid != geteuid()) FailToWrite(name, "it is a link of another user's");
    std::error_code error;
    const fs::path to = fs::read_symlink(target.name, error);
    if (error) FailToWrite(name, error.value());
    target.name = to.is_absolute() ? to.string() : (fs::path(FolderOf(target.name)) / to).string();
  }
  FailToWrite(name, "links lead in a circle");
}

void RequireRegular(const Target& target, const std::string& name) {
  if (S_ISDIR(target.status.st_mode)) FailToWrite(name, EISDIR);
  if (!S_ISREG(target.status.st_mode)) FailToWrite(name, "it is no regular file");
  // Root may write any file; one that nobody may is meant to stay.
  if ((target.status.st_mode & 0222) == 0) FailToWrite(name, "it is read-only");
  if (faccessat(AT_FDCWD, target.name.c_str(), W_OK, AT_EACCESS) != 0) FailToWrite(name, errno);
}

// Zero, or the error's number.
int WriteAll(int file, const std::string& content) {
  for (size_t done = 0; done < content.size();) {
    const ssize_t count = write(file, content.data() + done, content.size() - done);
    if (count < 0 && errno != EINTR) return errno;
    if (count > 0) done += static_cast<size_t>(count);
  }
  return fsync(file) == 0 ? 0 : errno;
}

// For a file whose owner can't be given to a new one, or whose folder takes no new files. The room
// is taken first, so that a full disk leaves the old content.
void WriteInPlace(const Target& target, const std::string& name, const std::string& content) {
  const Descriptor file(open(target.name.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!file) FailToWrite(name, errno);
  const auto size = static_cast<off_t>(content.size());
  int error = size == 0 ? 0 : posix_fallocate(file.get(), 0, size);
  if (error != 0 && error != EOPNOTSUPP) {
    if (ftruncate(file.get(), target.status.st_size) != 0) error = errno;
    FailToWrite(name, error);
  }
  error = WriteAll(file.get(), content);
  if (error == 0 && ftruncate(file.get(), size) != 0) error = errno;
  if (error != 0) FailToWrite(name, error);
}

mode_t ModeOfNewFile() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// A file of our own beside the target, under a name that nothing has.
class NewFile {
 public:
  explicit NewFile(const Target& target)
      : name_((fs::path(FolderOf(target.name)) /
               ("." + fs::path(target.name).filename().string() + ".XXXXXX"))
                  .string()),
        file_(mkostemp(name_.data(), O_CLOEXEC)),
        error_(file_ ? 0 : errno) {}
  ~NewFile() {
    if (file_ && !kept_) unlink(name_.c_str());
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  int error() const { return error_; }
  int file() const { return file_.get(); }
  bool TakeOwnerOf(const Target& target) {
    struct stat own {};
    if (fstat(file(), &own) != 0) return false;
    const bool same = own.st_uid == target.status.st_uid && own.st_gid == target.status.st_gid;
    return same || fchown(file(), target.status.st_uid, target.status.st_gid) == 0;
  }
  // Zero, or the error's number.
  int Become(const std::string& name) {
    if (rename(name_.c_str(), name.c_str()) != 0) return errno;
    kept_ = true;
    const Descriptor folder(open(FolderOf(name).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder) fsync(folder.get());
    return 0;
  }

 private:
  std::string name_;
  const Descriptor file_;
  const int error_;
  bool kept_ = false;
};

bool IsAt(int file, const std::string& name) {
  struct stat held {};
  struct stat now {};
  return fstat(file, &held) == 0 && stat(name.c_str(), &now) == 0 && held.st_ino == now.st_ino &&
         held.st_dev == now.st_dev;
}

std::optional<std::string> FolderFrom(const char* variable, const char* in_home) {
  const char* const folder = std::getenv(variable);
  if (folder != nullptr && folder[0] == '/') return std::string(folder) + "/perilink";
  const char* const home = std::getenv("HOME");
  if (home == nullptr || home[0] != '/') return std::nullopt;
  return std::string(home) + in_home + "/perilink";
}

}  // namespace

void WriteWholeFile(const std::string& name, const std::string& content, Links links) {
  const Target target = FindTarget(name, links);
  if (target.exists) RequireRegular(target, name);
  NewFile file(target);
  const bool folder_is_closed = file.error() == EACCES || file.error() == EROFS;
  if (file.error() != 0) {
    if (target.exists && folder_is_closed) return WriteInPlace(target, name, content);
    FailToWrite(name, file.error());
  }
  if (target.exists && !file.TakeOwnerOf(target)) return WriteInPlace(target, name, content);
  const mode_t mode = target.exists ? target.status.st_mode & 07777 : ModeOfNewFile();
  int error = fchmod(file.file(), mode) == 0 ? 0 : errno;
  if (error == 0) error = WriteAll(file.file(), content);
  if (error == 0) error = file.Become(target.name);
  if (error != 0) FailToWrite(name, error);
}

void RequireWritable(const std::string& name, Links links) {
  const Target target = FindTarget(name, links);
  if (target.exists) return RequireRegular(target, name);
  const NewFile file(target);
  if (file.error() != 0) FailToWrite(name, file.error());
}

bool CreateNewFile(const std::string& name, const std::string& content) {
  const Target target{name, false, {}};
  const NewFile file(target);
  if (file.error() != 0) FailToWrite(name, file.error());
  const int error = WriteAll(file.file(), content);
  if (error != 0) FailToWrite(name, error);
  // Under its name it is whole, and takes nobody's place.
  const std::string own = "/proc/self/fd/" + std::to_string(file.file());
  if (linkat(AT_FDCWD, own.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) return true;
  if (errno != EEXIST) FailToWrite(name, errno);
  return false;
}

// ---- Locks -------------------------------------------------------------------------------------

struct FileLock::State {
  int file;
  ~State() { close(file); }
};

FileLock::FileLock(const std::string& name) {
  const auto end = std::chrono::steady_clock::now() + kLockPatience;
  while (std::chrono::steady_clock::now() < end) {
    const int file = open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) throw FileError(name, "the file can't be read: " + FileReason(errno, false));
    state_.reset(new State{file});
    // It may have been replaced by the one who had it.
    if (flock(file, LOCK_EX | LOCK_NB) == 0 && IsAt(file, name)) return;
    std::this_thread::sleep_for(kLockPause);
  }
  throw FileError(name, "another process uses the file");
}

FileLock::~FileLock() = default;

// ---- Folders -----------------------------------------------------------------------------------

std::optional<std::string> StateFolder() {
  return FolderFrom("XDG_STATE_HOME", "/.local/state");
}

std::optional<std::string> ConfigFolder() {
  return FolderFrom("XDG_CONFIG_HOME", "/.config");
}

std::string DataFolder() {
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  return (program.parent_path().parent_path() / "share" / "perilink").string();
}

void MakeFolder(const std::string& name) {
  std::string made;
  for (const fs::path& step : fs::path(name)) {
    made = (fs::path(made) / step).string();
    if (mkdir(made.c_str(), 0700) == 0 || errno == EEXIST || errno == EISDIR) continue;
    throw FileError(name, "the folder can't be made: " + FileReason(errno, true));
  }
}

}  // namespace perilink::tools
