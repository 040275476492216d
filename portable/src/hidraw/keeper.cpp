// What the bus's keeper does: it follows the devices that come and go.
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <optional>
#include <utility>

#include "hidraw/hidraw_bus.h"
#include "perilink_platform/world.h"
#include "window_system.h"

namespace perilink::platform {
namespace {

using std::chrono::milliseconds;

// Opening a node that nobody has open takes the kernel 50 ms, and a host's direct commands open and
// close one each.
constexpr milliseconds kStaysOpen{2000};
// The kernel wakes readers a moment before a node leaves /sys.
constexpr milliseconds kCheckLost{50};
// After a lack of memory.
constexpr milliseconds kTryAgain{100};

// Throws without memory, and nobody has been told then. So who announces what he does himself does
// it after that, holding the device lock over both: it can be tried again, and those who are told
// look afterwards.
void Announce(const DeviceNotice& device, bool arrived) {
  if (!device.name.empty()) WindowSystem::Get().NotifyDeviceChange(device.name, arrived);
}

}  // namespace

void HidrawBus::WakeKeeper() {
  const uint64_t one = 1;
  // Fails when it has been woken often enough.
  [[maybe_unused]] const ssize_t written = write(wake_fd_, &one, sizeof one);
}

void HidrawBus::Keep() {
  pthread_setname_np(pthread_self(), "hid-keeper");
  bool missed = false;
  std::optional<DeviceEvent> event;
  for (;;) {
    pollfd waits[] = {{wake_fd_, POLLIN, 0}, {monitor_.fd(), POLLIN, 0}};
    // Behind with the events, it doesn't wait for more.
    const bool behind = event || missed;
    poll(waits, behind ? 1 : 2, behind ? static_cast<int>(kTryAgain.count()) : KeeperTimeout());
    uint64_t woken = 0;
    [[maybe_unused]] const ssize_t count = read(wake_fd_, &woken, sizeof woken);
    try {
      for (; event || (event = monitor_.Next()); event.reset()) {
        missed |= event->kind == DeviceEvent::kMissed;
        Handle(*event);
      }
      // Not before all are taken: until then more are lost, of which nobody tells again.
      if (missed) Rescan();
      missed = false;
      CheckLost();
    } catch (const std::exception&) {
      // No memory. An event is handled again; one that could not be taken is found by a scan.
      missed |= !event;
    }
    CloseIdle();
    CloseDiscarded();
  }
}

// Milliseconds until there is something to do without an event; -1: never.
int HidrawBus::KeeperTimeout() {
  const Clock::time_point now = Clock::now();
  Clock::time_point next = Clock::time_point::max();
  {
    const DeviceGuard guard;
    for (const NodePtr& node : nodes_) {
      if (node->checks_left > 0) next = std::min(next, now + kCheckLost);
      if (node->file == nullptr) continue;
      // In use, it can't be idle for long enough before that either.
      next = std::min(next, node->IdleSince().value_or(now) + kStaysOpen);
    }
  }
  if (next == Clock::time_point::max()) return -1;
  const auto wait = std::chrono::ceil<milliseconds>(std::max(next, now) - now);
  return static_cast<int>(wait.count());
}

void HidrawBus::Handle(const DeviceEvent& event) {
  switch (event.kind) {
    case DeviceEvent::kNodeAdded:
      return OnNodeAdded(event.folder);
    case DeviceEvent::kNodeRemoved:
      if (const NodePtr node = NodeIn(event.folder); node != nullptr) Remove(node);
      return;
    case DeviceEvent::kUsbAdded:
      arriving_.insert(event.folder);
      return;
    case DeviceEvent::kUsbBound:
      arriving_.erase(event.folder);
      return Announce(UsbNotice(event.folder, event.product), true);
    case DeviceEvent::kUsbRemoved:
      arriving_.erase(event.folder);
      return Announce(UsbNotice(event.folder, event.product), false);
    case DeviceEvent::kMissed:
      return;
  }
}

void HidrawBus::OnNodeAdded(const std::string& folder) {
  std::optional<SysfsNode> description = DescribeNode(folder);
  if (!description || NodeIn(folder) != nullptr) return;
  // Otherwise its device is announced once it has all its nodes.
  const bool announce = arriving_.count(description->device.folder) == 0;
  Insert(*std::move(description), true, announce);
}

// Both what came and what went while nobody told.
void HidrawBus::Rescan() {
  arriving_.clear();
  std::vector<SysfsNode> present = DescribeAllNodes();
  for (const NodePtr& node : Nodes()) {
    const bool stays = std::any_of(present.begin(), present.end(), [&](const SysfsNode& found) {
      return found.folder == node->description.folder;
    });
    if (!stays) Remove(node, true);
  }
  for (SysfsNode& found : present) {
    if (NodeIn(found.folder) == nullptr) Insert(std::move(found), true, true);
  }
}

std::vector<HidrawBus::NodePtr> HidrawBus::Nodes() {
  const DeviceGuard guard;
  return nodes_;
}

HidrawBus::NodePtr HidrawBus::NodeIn(const std::string& folder) {
  const DeviceGuard guard;
  const auto found = std::find_if(nodes_.begin(), nodes_.end(), [&](const NodePtr& node) {
    return node->description.folder == folder;
  });
  return found == nodes_.end() ? nullptr : *found;
}

void HidrawBus::Insert(SysfsNode description, bool is_new, bool announce) {
  const DeviceGuard guard;
  const auto is_taken = [&] {
    return std::any_of(nodes_.begin(), nodes_.end(), [&](const NodePtr& node) {
      const std::vector<std::wstring>& taken = node->description.paths;
      return !taken.empty() && taken.front() == description.paths.front();
    });
  };
  // Twins on another bus than USB may say that they are in the same place.
  while (!description.paths.empty() && is_taken()) {
    description.place += '+';
    NamePaths(description);
  }
  const auto node = std::make_shared<HidrawNode>(std::move(description), is_new);
  nodes_.reserve(nodes_.size() + 1);
  if (announce) Announce(node->description.device, true);
  const auto after = [](const NodePtr& a, const NodePtr& b) {
    return a->description.place < b->description.place;
  };
  nodes_.insert(std::upper_bound(nodes_.begin(), nodes_.end(), node, after), node);
}

void HidrawBus::Remove(const NodePtr& node, bool announce) {
  const DeviceGuard guard;
  if (announce) Announce(node->description.device, false);
  std::erase(nodes_, node);
  StopReading(*node);
  node->Remove();
}

// A USB device's going has an event of its own.
void HidrawBus::Remove(const NodePtr& node) {
  Remove(node, node->description.device.folder.empty());
}

void HidrawBus::CheckLost() {
  for (const NodePtr& node : Nodes()) {
    {
      const DeviceGuard guard;
      if (node->checks_left == 0) continue;
      --node->checks_left;
    }
    if (access(node->description.folder.c_str(), F_OK) != 0) Remove(node);
  }
}

void HidrawBus::CloseIdle() {
  const DeviceGuard guard;
  for (const NodePtr& node : nodes_) {
    if (node->file == nullptr) continue;
    const std::optional<Clock::time_point> since = node->IdleSince();
    if (!since || Clock::now() < *since + kStaysOpen) continue;
    StopReading(*node);
    node->file.reset();
  }
}

// Whoever lets go of a file last may hold the device lock: the keeper closes it.
void HidrawBus::Discard(NodeFile* file) {
  {
    const std::lock_guard lock(discarded_mutex_);
    file->next_to_close = std::exchange(discarded_, file);
  }
  WakeKeeper();
}

void HidrawBus::CloseDiscarded() {
  NodeFile* file = nullptr;
  {
    const std::lock_guard lock(discarded_mutex_);
    file = std::exchange(discarded_, nullptr);
  }
  while (file != nullptr)
    delete std::exchange(file, file->next_to_close);
}

}  // namespace perilink::platform
