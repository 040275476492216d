// A hidraw node: its file, which all handles of its collections share, and the connections that its
// reports go to.
#ifndef PERILINK_PLATFORM_SRC_HIDRAW_HIDRAW_NODE_H_
#define PERILINK_PLATFORM_SRC_HIDRAW_HIDRAW_NODE_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "hidraw/sysfs_node.h"
#include "perilink_platform/hid_bus.h"

namespace perilink::platform {

class HidrawNode;

// The Windows error for what a call on a hidraw node ended with.
enum class NodeCall { kOpen, kTransfer };
DWORD ErrorOf(int error_number, NodeCall call);

// An open node. Opening and closing one waits for every write under way to any node of the machine,
// as long as five seconds: nobody does either with the device lock held.
struct NodeFile {
  NodeFile(int descriptor, uint64_t number) : fd(descriptor), id(number) {}
  ~NodeFile();
  NodeFile(const NodeFile&) = delete;
  NodeFile& operator=(const NodeFile&) = delete;

  const int fd;
  const uint64_t id;  // never used again, as a descriptor would be
  NodeFile* next_to_close = nullptr;
};

// One open of a collection. It holds the node's file, so that a write under way can't reach another
// device through a descriptor used again; without one it only tells the attributes.
class HidrawConnection final : public HidConnection {
 public:
  HidrawConnection(std::shared_ptr<HidrawNode> node, size_t collection,
                   std::shared_ptr<NodeFile> file, HidInputSink& sink);
  ~HidrawConnection() override;

  DWORD WriteOutputReport(std::span<const uint8_t> report) override;
  DWORD SetFeatureReport(std::span<const uint8_t> report) override;
  HidAttributes Attributes() const override;
  size_t InputReportLength() const override;

  bool UsesFile(const NodeFile* file) const { return file_.get() == file; }
  bool Takes(uint8_t report_id) const;
  HidInputSink& sink() { return sink_; }

 private:
  const HidCollection& Collection() const;
  // 0 and the bytes for the kernel, or why the report can't be sent.
  DWORD Prepare(ReportKind kind, std::span<const uint8_t> report,
                std::vector<uint8_t>& bytes) const;

  const std::shared_ptr<HidrawNode> node_;
  const size_t collection_;
  const std::shared_ptr<NodeFile> file_;
  HidInputSink& sink_;
};

// All but the description is touched under the device lock only, save where it is said.
class HidrawNode {
 public:
  using Clock = std::chrono::steady_clock;

  // `is_new`: it appeared while the process ran, just now.
  HidrawNode(SysfsNode about, bool is_new) : description(std::move(about)), announced(is_new) {}

  // Takes the device's reports from the kernel, at most as many as it keeps, and hands them on.
  // False when the file is of no more use. Never waits.
  bool Drain();
  // The file is of no more use: its handles are told, and the next opening makes another.
  void LoseFile();
  // The node has gone.
  void Remove();
  // Since when nobody uses the file; nothing while somebody does.
  std::optional<Clock::time_point> IdleSince() const;

  void Connect(HidrawConnection& connection) { connections_.push_back(&connection); }
  void Disconnect(HidrawConnection& connection);

  const SysfsNode description;
  const bool announced;
  const Clock::time_point appeared = Clock::now();
  std::mutex opening;  // one opening at a time; taken before the device lock
  bool present = true;
  std::shared_ptr<NodeFile> file;  // null while closed
  int checks_left = 0;             // whether it is still in /sys, after its file was lost

 private:
  void Tell(const NodeFile* whose);

  std::vector<HidrawConnection*> connections_;
  Clock::time_point last_use_;
};

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_HIDRAW_HIDRAW_NODE_H_
