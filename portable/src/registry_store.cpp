#include "registry_store.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "perilink_platform/error.h"
#include "perilink_platform/world.h"

namespace perilink::platform {
namespace {

using std::chrono::steady_clock;

constexpr char kFile[] = "registry.txt";
constexpr char kNewFile[] = "registry.new";
constexpr char kDamagedFile[] = "registry.damaged";
constexpr char kLockFile[] = "registry.lock";

// The system has no lock with a time limit: it is asked for every few milliseconds.
constexpr std::chrono::seconds kLongestLock{2};
constexpr std::chrono::milliseconds kLockRetry{2};

DWORD LastError() {
  switch (errno) {
    case ENOENT:
    case ENOTDIR:
      return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
    case ELOOP:   // a link
    case ENXIO:   // a socket
    case EISDIR:  // a folder in a file's place
    case EEXIST:
      return ERROR_ACCESS_DENIED;
    case EMFILE:
    case ENFILE:
      return ERROR_TOO_MANY_OPEN_FILES;
    case ENOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    case ENOSPC:
    case EDQUOT:
      return ERROR_DISK_FULL;
    case EFBIG:
      return ERROR_FILE_TOO_LARGE;
    default:
      return ERROR_REGISTRY_IO_FAILED;
  }
}

// The home that the system knows for the user.
std::string HomeOfUser() {
  std::vector<char> texts(16'384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &entry, texts.data(), texts.size(), &found) != 0 || found == nullptr)
    return {};
  return found->pw_dir;
}

// The variable's value where it is an absolute path: others don't count.
std::string PathIn(const char* variable) {
  const char* const value = secure_getenv(variable);
  return value != nullptr && *value == '/' ? value : "";
}

// Opens the folder, which must be the user's own, not a link, and closed to the writing of others.
// One that others can only look into is made private.
DWORD OpenFolder(const std::string& path, FileDescriptor& folder) {
  folder = FileDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  // O_DIRECTORY sees a link as no folder.
  if (!folder.valid()) return errno == ENOTDIR ? ERROR_ACCESS_DENIED : LastError();
  struct stat about {};
  if (fstat(folder.get(), &about) != 0) return LastError();
  if (about.st_uid != geteuid() || (about.st_mode & 022) != 0) return ERROR_ACCESS_DENIED;
  if ((about.st_mode & 077) != 0 && fchmod(folder.get(), 0700) != 0) return LastError();
  return 0;
}

// Creates the folder and those above it.
DWORD MakeFolder(const std::string& path) {
  for (size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1))
    mkdir(path.substr(0, end).c_str(), 0700);  // if that fails, the last one does
  return mkdir(path.c_str(), 0700) == 0 || errno == EEXIST ? 0 : LastError();
}

// Opens a file of the folder's, which must be a regular one of the user's. Never waits: a FIFO
// would without O_NONBLOCK.
DWORD OpenFile(const FileDescriptor& folder, const char* name, int flags, FileDescriptor& file,
               struct stat& about) {
  file = FileDescriptor(
      openat(folder.get(), name, flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600));
  if (!file.valid()) return errno == ENOENT ? ERROR_FILE_NOT_FOUND : LastError();
  if (fstat(file.get(), &about) != 0) return LastError();
  return S_ISREG(about.st_mode) && about.st_uid == geteuid() ? 0 : ERROR_ACCESS_DENIED;
}

// Takes the lock that writers hold, which ends with `lock`.
DWORD LockFile(const FileDescriptor& folder, FileDescriptor& lock) {
  struct stat about {};
  if (const DWORD error = OpenFile(folder, kLockFile, O_RDWR | O_CREAT, lock, about); error != 0)
    return error;
  const auto give_up = steady_clock::now() + kLongestLock;
  while (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return LastError();
    if (steady_clock::now() >= give_up) return ERROR_LOCK_VIOLATION;
    std::this_thread::sleep_for(kLockRetry);
  }
  return 0;
}

// A file that grows meanwhile is read no further than one byte too many.
DWORD ReadAll(int file, std::string& text) {
  char block[4096];
  while (text.size() <= kLargestRegistry) {
    const ssize_t count = read(file, block, sizeof(block));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return LastError();
    if (count == 0) return 0;
    text.append(block, static_cast<size_t>(count));
  }
  return ERROR_FILE_TOO_LARGE;
}

DWORD WriteAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(file, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return LastError();
    text.remove_prefix(static_cast<size_t>(count));
  }
  return fsync(file) == 0 ? 0 : LastError();
}

bool SameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

std::string DefaultRegistryFolder() {
  if (const std::string state = PathIn("XDG_STATE_HOME"); !state.empty())
    return state + "/perilink";
  std::string home = PathIn("HOME");
  if (home.empty()) home = HomeOfUser();
  return home.empty() ? "" : home + "/.local/state/perilink";
}

void SetRegistryFolder(const std::string& folder) {
  RegistryStore::Get().SetFolder(folder);
}

RegistryStore& RegistryStore::Get() {
  static auto* const store = new RegistryStore;
  return *store;
}

void RegistryStore::SetFolder(const std::string& folder) {
  const std::lock_guard lock(mutex_);
  chosen_folder_ = folder;
  identity_.reset();
}

DWORD RegistryStore::FindFolder(std::string& folder) {
  const std::lock_guard lock(mutex_);
  if (chosen_folder_.empty()) chosen_folder_ = DefaultRegistryFolder();
  folder = chosen_folder_;
  return folder.empty() ? ERROR_PATH_NOT_FOUND : 0;
}

DWORD RegistryStore::Read(const std::function<void(const RegistryTree&)>& look) {
  std::string path;
  if (const DWORD error = FindFolder(path); error != 0) return error;
  FileDescriptor folder;
  const DWORD error = OpenFolder(path, folder);
  if (error == ERROR_PATH_NOT_FOUND) {
    look(RegistryTree());
    return 0;
  }
  if (error != 0) return error;
  const std::lock_guard lock(mutex_);
  if (const DWORD failure = Reload(folder); failure != 0) return failure;
  look(tree_);
  return 0;
}

DWORD RegistryStore::Update(const std::function<void(RegistryTree&)>& change) {
  std::string path;
  FileDescriptor folder;
  FileDescriptor turn;
  DWORD error = FindFolder(path);
  if (error == 0) error = MakeFolder(path);
  if (error == 0) error = OpenFolder(path, folder);
  if (error == 0) error = LockFile(folder, turn);
  if (error != 0) return error;
  const std::lock_guard lock(mutex_);
  error = Reload(folder);
  if (error != 0) return error;
  RegistryTree changed = tree_;
  change(changed);
  return Replace(folder, changed);
}

// Reads the file unless it is the one that was read last.
DWORD RegistryStore::Reload(const FileDescriptor& folder) {
  FileDescriptor file;
  struct stat about {};
  const DWORD error = OpenFile(folder, kFile, O_RDONLY, file, about);
  if (error == ERROR_FILE_NOT_FOUND) {
    identity_.reset();
    tree_ = RegistryTree();
    understood_ = true;
    return 0;
  }
  if (error != 0) return error;
  if (identity_ && SameFile(about, *identity_)) return 0;
  std::string text;
  if (const DWORD failure = ReadAll(file.get(), text); failure != 0) return failure;
  identity_.reset();
  understood_ = tree_.FromText(text);
  identity_ = about;
  return 0;
}

DWORD RegistryStore::Replace(const FileDescriptor& folder, const RegistryTree& tree) {
  const std::string text = tree.ToText();
  if (text.size() > kLargestRegistry) return ERROR_FILE_TOO_LARGE;
  // What a writer that died has left.
  unlinkat(folder.get(), kNewFile, 0);
  {
    FileDescriptor file;
    struct stat about {};
    DWORD error = OpenFile(folder, kNewFile, O_WRONLY | O_CREAT | O_EXCL, file, about);
    if (error != 0) return error;
    error = WriteAll(file.get(), text);
    if (error != 0) {
      unlinkat(folder.get(), kNewFile, 0);
      return error;
    }
  }
  // What nobody understood may be worth something to its user.
  if (!understood_ && renameat(folder.get(), kFile, folder.get(), kDamagedFile) != 0)
    return LastError();
  if (renameat(folder.get(), kNewFile, folder.get(), kFile) != 0) return LastError();
  // Some file systems have nothing to do for a folder.
  return fsync(folder.get()) == 0 || errno == EINVAL ? 0 : ERROR_REGISTRY_IO_FAILED;
}

}  // namespace perilink::platform
