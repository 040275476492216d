#include "hidraw/hidraw_node.h"

#include <linux/hidraw.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "perilink_platform/error.h"
#include "perilink_platform/world.h"
#include "report_check.h"

namespace perilink::platform {
namespace {

// As many as the kernel keeps for a file.
constexpr int kMostDrained = 64;
// More than the kernel takes from a device at once.
constexpr size_t kLongestReport = 16384;
// How often a lost node is looked for in /sys.
constexpr int kChecks = 20;

}  // namespace

DWORD ErrorOf(int error_number, NodeCall call) {
  switch (error_number) {
    case ENOENT:
    case ENXIO:
      return ERROR_FILE_NOT_FOUND;
    case ENODEV:
      return call == NodeCall::kOpen ? ERROR_FILE_NOT_FOUND : ERROR_DEVICE_NOT_CONNECTED;
    case ESHUTDOWN:
      return ERROR_DEVICE_NOT_CONNECTED;
    case EACCES:
    case EPERM:
      return ERROR_ACCESS_DENIED;
    case ETIMEDOUT:
      return ERROR_SEM_TIMEOUT;
    case EINVAL:
      return ERROR_INVALID_PARAMETER;
    case EMFILE:
    case ENFILE:
    case ENOMEM:
      return ERROR_NO_SYSTEM_RESOURCES;
    default:  // EPIPE, EPROTO, EIO, ...: the device or its bus failed
      return ERROR_GEN_FAILURE;
  }
}

NodeFile::~NodeFile() {
  close(fd);
}

HidrawConnection::HidrawConnection(std::shared_ptr<HidrawNode> node, size_t collection,
                                   std::shared_ptr<NodeFile> file, HidInputSink& sink)
    : node_(std::move(node)), collection_(collection), file_(std::move(file)), sink_(sink) {
  node_->Connect(*this);
}

HidrawConnection::~HidrawConnection() {
  const DeviceGuard guard;
  node_->Disconnect(*this);
}

const HidCollection& HidrawConnection::Collection() const {
  return node_->description.descriptor.collections[collection_];
}

HidAttributes HidrawConnection::Attributes() const {
  return node_->description.attributes;
}

size_t HidrawConnection::InputReportLength() const {
  return Collection().reports[kInputReport].length;
}

bool HidrawConnection::Takes(uint8_t report_id) const {
  return Collection().reports[kInputReport].ids.test(report_id);
}

DWORD HidrawConnection::Prepare(ReportKind kind, std::span<const uint8_t> report,
                                std::vector<uint8_t>& bytes) const {
  const CollectionReports& reports = Collection().reports[kind];
  if (const DWORD error = CheckReportSize(report.size(), reports.length); error != 0) return error;
  // The kernel sends whatever it is given, to whichever collection.
  if (!reports.ids.test(report[0])) return ERROR_INVALID_PARAMETER;
  bytes = PaddedReport(report, reports.length);
  return file_ == nullptr ? ERROR_ACCESS_DENIED : 0;
}

DWORD HidrawConnection::WriteOutputReport(std::span<const uint8_t> report) {
  std::vector<uint8_t> bytes;
  if (const DWORD error = Prepare(kOutputReport, report, bytes); error != 0) return error;
  const ssize_t written = write(file_->fd, bytes.data(), bytes.size());
  if (written < 0) return ErrorOf(errno, NodeCall::kTransfer);
  return static_cast<size_t>(written) < bytes.size() ? ERROR_WRITE_FAULT : 0;
}

DWORD HidrawConnection::SetFeatureReport(std::span<const uint8_t> report) {
  std::vector<uint8_t> bytes;
  if (const DWORD error = Prepare(kFeatureReport, report, bytes); error != 0) return error;
  return ioctl(file_->fd, HIDIOCSFEATURE(bytes.size()), bytes.data()) < 0
             ? ErrorOf(errno, NodeCall::kTransfer)
             : 0;
}

bool HidrawNode::Drain() {
  // Under the device lock: one serves all.
  static std::array<uint8_t, 1 + kLongestReport> buffer;
  // Where reports have no id, hosts see an id of 0.
  const size_t id_bytes = description.descriptor.numbered[kInputReport] ? 0 : 1;
  buffer[0] = 0;
  for (int i = 0; i < kMostDrained; ++i) {
    const ssize_t count = read(file->fd, buffer.data() + id_bytes, kLongestReport);
    if (count < 0) return errno == EAGAIN || errno == EINTR;
    const std::span report(buffer.data(), static_cast<size_t>(count) + id_bytes);
    if (report.empty()) return true;
    for (HidrawConnection* const connection : connections_) {
      if (connection->UsesFile(file.get()) && connection->Takes(report[0]))
        connection->sink().OnInputReport(report);
    }
  }
  return true;
}

void HidrawNode::Tell(const NodeFile* whose) {
  for (HidrawConnection* const connection : connections_) {
    if (connection->UsesFile(whose)) connection->sink().OnRemoved();
  }
  std::erase_if(connections_,
                [whose](const HidrawConnection* known) { return known->UsesFile(whose); });
}

void HidrawNode::LoseFile() {
  if (file != nullptr) Tell(std::exchange(file, nullptr).get());
  checks_left = kChecks;
}

void HidrawNode::Remove() {
  present = false;
  LoseFile();
  Tell(nullptr);
}

void HidrawNode::Disconnect(HidrawConnection& connection) {
  std::erase(connections_, &connection);
  last_use_ = Clock::now();
}

std::optional<HidrawNode::Clock::time_point> HidrawNode::IdleSince() const {
  const bool used =
      std::any_of(connections_.begin(), connections_.end(),
                  [this](const HidrawConnection* known) { return known->UsesFile(file.get()); });
  return used ? std::nullopt : std::optional(last_use_);
}

}  // namespace perilink::platform
