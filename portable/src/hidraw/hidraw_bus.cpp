#include "hidraw/hidraw_bus.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <future>
#include <new>
#include <thread>

#include "path.h"
#include "perilink_platform/error.h"
#include "perilink_platform/world.h"

namespace perilink::platform {
namespace {

using std::chrono::milliseconds;

// Where the kernel announces a node before its permissions are set.
constexpr milliseconds kPermissionsSettle{1000};
constexpr milliseconds kPermissionsRetry{20};

// The system keeps keyboards and mice to itself.
bool BelongsToSystem(const HidCollection& collection) {
  constexpr uint16_t kGenericDesktop = 1;
  constexpr uint16_t kMouse = 2;
  constexpr uint16_t kKeyboard = 6;
  constexpr uint16_t kKeypad = 7;
  return collection.usage_page == kGenericDesktop &&
         (collection.usage == kMouse || collection.usage == kKeyboard ||
          collection.usage == kKeypad);
}

constexpr DWORD kNoResources = ERROR_NO_SYSTEM_RESOURCES;

class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

}  // namespace

HidrawBus* HidrawBus::Start() {
  try {
    auto bus = std::unique_ptr<HidrawBus>(new HidrawBus);
    if (bus->epoll_fd_ < 0 || bus->wake_fd_ < 0) return nullptr;
    const SignalsBlocked blocked;
    std::promise<bool> both_made;
    const std::shared_future<bool> go = both_made.get_future().share();
    std::thread keeper([&bus = *bus, go] {
      if (go.get()) bus.Keep();
    });
    try {
      std::thread([&bus = *bus, go] {
        if (go.get()) bus.Read();
      }).detach();
    } catch (const std::exception&) {
      both_made.set_value(false);
      keeper.join();
      return nullptr;
    }
    keeper.detach();
    both_made.set_value(true);
    return bus.release();
  } catch (const std::exception&) {
    return nullptr;
  }
}

HidrawBus::HidrawBus()
    : epoll_fd_(epoll_create1(EPOLL_CLOEXEC)), wake_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  // The monitor listens already: what comes or goes from now on is told.
  for (SysfsNode& description : DescribeAllNodes())
    Insert(std::move(description), false, false);
}

HidrawBus::~HidrawBus() {
  close(epoll_fd_);
  close(wake_fd_);
}

std::vector<std::wstring> HidrawBus::PresentInterfaces() {
  const DeviceGuard guard;
  std::vector<std::wstring> paths;
  for (const NodePtr& node : nodes_)
    paths.insert(paths.end(), node->description.paths.begin(), node->description.paths.end());
  return paths;
}

HidrawBus::NodePtr HidrawBus::Find(const std::wstring& path, size_t& collection) {
  const DeviceGuard guard;
  for (const NodePtr& node : nodes_) {
    const std::vector<std::wstring>& paths = node->description.paths;
    for (collection = 0; collection < paths.size(); ++collection) {
      if (SamePath(paths[collection], path)) return node;
    }
  }
  return nullptr;
}

std::string HidrawBus::DeviceFileOf(const std::wstring& path) {
  size_t collection = 0;
  const NodePtr node = Find(path, collection);
  return node == nullptr ? "" : node->description.device_file;
}

// ---- Opening, on the caller's thread ----------------------------------------------------------

DWORD HidrawBus::Open(const std::wstring& path, DWORD access, HidInputSink& sink,
                      std::unique_ptr<HidConnection>& connection) {
  size_t collection = 0;
  const NodePtr node = Find(path, collection);
  if (node == nullptr) return ERROR_FILE_NOT_FOUND;
  const auto connect = [&](const std::shared_ptr<NodeFile>& file) {
    connection = std::make_unique<HidrawConnection>(node, collection, file, sink);
    return DWORD{0};
  };
  const std::lock_guard opening(node->opening);
  if (access != 0 && BelongsToSystem(node->description.descriptor.collections[collection]))
    return ERROR_ACCESS_DENIED;
  {
    const DeviceGuard guard;
    if (!node->present) return ERROR_FILE_NOT_FOUND;
    if (access == 0) return connect(nullptr);
    if (node->file != nullptr) {
      // What the device sent before is not for this handle.
      if (node->Drain()) return connect(node->file);
      LoseFile(*node);
    }
  }
  std::shared_ptr<NodeFile> file;
  const DWORD error = OpenFile(*node, file);
  const DeviceGuard guard;
  if (error == 0 && node->present) return StartUsing(*node, file) ? connect(file) : kNoResources;
  // Without an event to say so, this is how a node is found to have gone.
  if (error == 0 || error == ERROR_FILE_NOT_FOUND) LoseFile(*node);
  return error != 0 ? error : ERROR_FILE_NOT_FOUND;
}

DWORD HidrawBus::OpenFile(HidrawNode& node, std::shared_ptr<NodeFile>& file) {
  const SysfsNode& description = node.description;
  const bool settling = node.announced && monitor_.early();
  int fd = -1;
  while ((fd = open(description.device_file.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)) < 0) {
    if (errno == EINTR) continue;
    if (errno != EACCES || !settling || Clock::now() > node.appeared + kPermissionsSettle)
      return ErrorOf(errno, NodeCall::kOpen);
    std::this_thread::sleep_for(kPermissionsRetry);
  }
  uint64_t id = 0;
  {
    const DeviceGuard guard;
    id = ++last_file_id_;
  }
  auto* const made = new (std::nothrow) NodeFile(fd, id);
  if (made == nullptr) {
    close(fd);
    return ERROR_NOT_ENOUGH_MEMORY;
  }
  file = {made, [this](NodeFile* unused) { Discard(unused); }};
  // The number in a node's name is given to another device once it is free. As long as the node's
  // folder is there it has not been.
  return access(description.folder.c_str(), F_OK) == 0 ? 0 : ERROR_FILE_NOT_FOUND;
}

bool HidrawBus::StartUsing(HidrawNode& node, const std::shared_ptr<NodeFile>& file) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = file->id;
  if (epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, file->fd, &event) != 0) return false;
  node.file = file;
  WakeKeeper();
  return true;
}

// Its handles are told. Whether the node itself has gone is for the keeper to see.
void HidrawBus::LoseFile(HidrawNode& node) {
  StopReading(node);
  node.LoseFile();
  WakeKeeper();
}

void HidrawBus::StopReading(const HidrawNode& node) {
  if (node.file != nullptr) epoll_ctl(epoll_fd_, EPOLL_CTL_DEL, node.file->fd, nullptr);
}

// ---- The reader -------------------------------------------------------------------------------

void HidrawBus::Read() {
  pthread_setname_np(pthread_self(), "hid-reader");
  std::array<epoll_event, 16> events{};
  for (;;) {
    const int count = epoll_wait(epoll_fd_, events.data(), static_cast<int>(events.size()), -1);
    for (int i = 0; i < count; ++i) {
      const epoll_event& event = events[static_cast<size_t>(i)];
      try {
        OnReadable(event.data.u64, (event.events & (EPOLLERR | EPOLLHUP)) != 0);
      } catch (const std::bad_alloc&) {
        // The report that there was no memory for is lost, as in a full queue.
      }
    }
  }
}

void HidrawBus::OnReadable(uint64_t file_id, bool gone) {
  const DeviceGuard guard;
  for (const NodePtr& node : nodes_) {
    if (node->file == nullptr || node->file->id != file_id) continue;
    if (gone || !node->Drain()) LoseFile(*node);
    return;
  }
}

}  // namespace perilink::platform
