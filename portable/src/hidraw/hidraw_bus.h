// The machine's HID devices, over the kernel's hidraw nodes.
//
// Two threads work for it as long as the process lives. The reader hands on what devices send; it
// only ever waits for reports. The keeper does what can take seconds: it follows devices that come
// and go, reads /sys, and closes files.
#ifndef PERILINK_PLATFORM_SRC_HIDRAW_HIDRAW_BUS_H_
#define PERILINK_PLATFORM_SRC_HIDRAW_HIDRAW_BUS_H_

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "hidraw/device_monitor.h"
#include "hidraw/hidraw_node.h"
#include "perilink_platform/hid_bus.h"

namespace perilink::platform {

class HidrawBus final : public HidBus {
 public:
  // Knows what is present when it returns. Null when the system has no descriptor, memory or thread
  // left for it. Never deleted: its threads live on.
  static HidrawBus* Start();

  std::vector<std::wstring> PresentInterfaces() override;
  DWORD Open(const std::wstring& path, DWORD access, HidInputSink& sink,
             std::unique_ptr<HidConnection>& connection) override;
  // "/dev/hidraw3" for the path of a collection; empty if it isn't present.
  std::string DeviceFileOf(const std::wstring& path);

 private:
  using Clock = HidrawNode::Clock;
  using NodePtr = std::shared_ptr<HidrawNode>;

  HidrawBus();
  ~HidrawBus() override;
  friend struct std::default_delete<HidrawBus>;

  NodePtr Find(const std::wstring& path, size_t& collection);
  DWORD OpenFile(HidrawNode& node, std::shared_ptr<NodeFile>& file);
  // With the device lock held:
  bool StartUsing(HidrawNode& node, const std::shared_ptr<NodeFile>& file);
  void LoseFile(HidrawNode& node);
  void StopReading(const HidrawNode& node);

  void Read();
  void OnReadable(uint64_t file_id, bool gone);

  void WakeKeeper();
  void Keep();
  int KeeperTimeout();
  void Handle(const DeviceEvent& event);
  void OnNodeAdded(const std::string& folder);
  void Rescan();
  std::vector<NodePtr> Nodes();
  NodePtr NodeIn(const std::string& folder);
  void Insert(SysfsNode description, bool is_new, bool announce);
  void Remove(const NodePtr& node, bool announce);
  void Remove(const NodePtr& node);
  void CheckLost();
  void CloseIdle();
  void Discard(NodeFile* file);
  void CloseDiscarded();

  const int epoll_fd_;
  const int wake_fd_;
  DeviceMonitor monitor_;           // the keeper's
  std::set<std::string> arriving_;  // the keeper's: USB devices whose nodes are being announced
  std::vector<NodePtr> nodes_;      // under the device lock, in the order of their places
  uint64_t last_file_id_ = 0;       // under the device lock
  std::mutex discarded_mutex_;      // for the list below; taken last
  NodeFile* discarded_ = nullptr;
};

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_HIDRAW_HIDRAW_BUS_H_
