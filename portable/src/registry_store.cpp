#include "registry_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "perilink_platform/error.h"
#include "perilink_platform/world.h"

namespace perilink::platform {
namespace {

constexpr char kFile[] = "registry.txt";
constexpr char kNewFile[] = "registry.new";
constexpr char kDamagedFile[] = "registry.damaged";
constexpr char kLockFile[] = "registry.lock";
constexpr off_t kLargestFile = 16'000'000;

class FileDescriptor {
 public:
  FileDescriptor(const std::string& path, int flags)
      : descriptor_(open(path.c_str(), flags | O_CLOEXEC, 0600)) {}
  ~FileDescriptor() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  bool valid() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }

 private:
  const int descriptor_;
};

std::string DefaultFolder() {
  const char* const state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && *state == '/') return std::string(state) + "/perilink";
  const char* const home = std::getenv("HOME");
  return std::string(home != nullptr ? home : "/tmp") + "/.local/state/perilink";
}

// Creates the folder and those above it. Failure shows when the files in it can't be made.
void MakeFolder(const std::string& folder) {
  for (size_t end = folder.find('/', 1); end != std::string::npos; end = folder.find('/', end + 1))
    mkdir(folder.substr(0, end).c_str(), 0700);
  mkdir(folder.c_str(), 0700);
}

bool ReadAll(int file, std::string& text) {
  char block[4096];
  while (true) {
    const ssize_t count = read(file, block, sizeof(block));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return count == 0;
    text.append(block, static_cast<size_t>(count));
  }
}

bool WriteAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(file, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    text.remove_prefix(static_cast<size_t>(count));
  }
  return fsync(file) == 0;
}

bool SameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

void SetRegistryFolder(const std::string& folder) {
  RegistryStore::Get().SetFolder(folder);
}

RegistryStore& RegistryStore::Get() {
  static auto* const store = new RegistryStore;
  return *store;
}

void RegistryStore::SetFolder(const std::string& folder) {
  const std::lock_guard lock(mutex_);
  folder_ = folder;
  loaded_ = false;
}

void RegistryStore::Read(const std::function<void(const RegistryTree&)>& look) {
  const std::lock_guard lock(mutex_);
  Reload();
  look(tree_);
}

DWORD RegistryStore::Update(const std::function<void(RegistryTree&)>& change) {
  const std::lock_guard lock(mutex_);
  if (folder_.empty()) folder_ = DefaultFolder();
  MakeFolder(folder_);
  const FileDescriptor turn(File(kLockFile), O_RDWR | O_CREAT);
  if (!turn.valid()) return ERROR_ACCESS_DENIED;
  while (flock(turn.get(), LOCK_EX) != 0) {
    if (errno != EINTR) return ERROR_ACCESS_DENIED;
  }
  Reload();
  RegistryTree changed = tree_;
  change(changed);
  return Replace(changed);
}

// Reads the file unless it is the one that was read last.
void RegistryStore::Reload() {
  if (folder_.empty()) folder_ = DefaultFolder();
  const FileDescriptor file(File(kFile), O_RDONLY);
  struct stat identity {};
  if (!file.valid() || fstat(file.get(), &identity) != 0) {
    tree_ = RegistryTree();
    understood_ = true;
    loaded_ = false;
    return;
  }
  if (loaded_ && SameFile(identity, identity_)) return;
  std::string text;
  understood_ =
      identity.st_size <= kLargestFile && ReadAll(file.get(), text) && tree_.FromText(text);
  if (!understood_) tree_ = RegistryTree();
  identity_ = identity;
  loaded_ = true;
}

DWORD RegistryStore::Replace(const RegistryTree& tree) {
  // What nobody understood may be worth something to its user.
  if (!understood_) std::rename(File(kFile).c_str(), File(kDamagedFile).c_str());
  {
    const FileDescriptor file(File(kNewFile), O_WRONLY | O_CREAT | O_TRUNC);
    if (!file.valid()) return ERROR_ACCESS_DENIED;
    if (!WriteAll(file.get(), tree.ToText())) return ERROR_WRITE_FAULT;
  }
  if (std::rename(File(kNewFile).c_str(), File(kFile).c_str()) != 0) return ERROR_ACCESS_DENIED;
  const FileDescriptor folder(folder_, O_RDONLY | O_DIRECTORY);
  if (folder.valid()) fsync(folder.get());
  return 0;
}

}  // namespace perilink::platform
