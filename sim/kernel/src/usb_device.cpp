#include "sim/usb_device.h"

#include <endian.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

namespace perilink::sim {
namespace {

constexpr char kAttach[] = "/sys/devices/platform/vhci_hcd.0/attach";
constexpr int kFullSpeed = 2;
constexpr uint8_t kPacketSize = 64;

enum Message : uint32_t { kSubmit = 1, kUnlink = 2, kSubmitDone = 3, kUnlinkDone = 4 };

// bmRequestType and bRequest of the requests that a HID device knows.
enum ControlRequest : unsigned {
  kGetStatus = 0x8000,
  kGetDescriptor = 0x8006,
  kGetInterfaceDescriptor = 0x8106,
  kSetReport = 0x2109,
};
enum DescriptorType : unsigned {
  kDevice = 1,
  kConfiguration = 2,
  kString = 3,
  kReportDescriptor = 0x22,
};

uint8_t Low(unsigned value) {
  return static_cast<uint8_t>(value);
}
uint8_t High(unsigned value) {
  return static_cast<uint8_t>(value >> 8);
}

void Append(Bytes& to, std::initializer_list<unsigned> bytes) {
  std::transform(bytes.begin(), bytes.end(), std::back_inserter(to), Low);
}

bool ReceiveAll(int socket, void* data, size_t size) {
  return size == 0 || recv(socket, data, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

}  // namespace

// Of a message in either direction; numbers are big-endian.
struct UsbDevice::Header {
  uint32_t message;
  uint32_t sequence;
  uint32_t device;
  uint32_t to_host;
  uint32_t endpoint;
  uint32_t flags_or_victim_or_status;
  uint32_t length;
  uint32_t start_frame;
  uint32_t packets;
  uint32_t interval_or_errors;
  uint8_t setup[8];
};

bool CanPlugIntoKernel() {
  return access(kAttach, W_OK) == 0;
}

UsbDevice::UsbDevice(const UsbIdentity& identity, std::vector<UsbInterface> interfaces,
                     Handler handler)
    : identity_(identity), interfaces_(std::move(interfaces)), handler_(std::move(handler)) {}

void UsbDevice::Plug() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    throw std::runtime_error("no socket");
  {
    const std::lock_guard lock(mutex_);
    socket_ = ends[0];
    pulled_out_ = false;
  }
  thread_ = std::thread([this, socket = ends[0]] { Serve(socket); });
  const std::string request = std::to_string(identity_.port) + " " + std::to_string(ends[1]) +
                              " 65537 " + std::to_string(kFullSpeed);
  const int attach = open(kAttach, O_WRONLY | O_CLOEXEC);
  // A port is busy for a moment after an unplug.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (write(attach, request.data(), request.size()) < 0) {
    if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("attach failed");
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  close(attach);
  close(ends[1]);  // the kernel holds its own
}

void UsbDevice::PullOut() {
  const std::lock_guard lock(mutex_);
  if (socket_ < 0) return;
  pulled_out_ = true;
  // What the kernel has sent is still answered: it would wait seconds for the end of a write.
  for (const Request& request : std::exchange(held_, {}))
    Complete(request, -EPROTO, {}, 0);
  shutdown(socket_, SHUT_RD);
}

void UsbDevice::Unplug() {
  if (!thread_.joinable()) return;
  PullOut();
  thread_.join();
  const std::lock_guard lock(mutex_);
  close(std::exchange(socket_, -1));
  polls_.clear();
  reports_.clear();
}

void UsbDevice::Send(size_t interface_number, Bytes report) {
  const std::lock_guard lock(mutex_);
  std::deque<Request>& polls = polls_[interface_number];
  if (polls.empty()) {
    reports_[interface_number].push_back(std::move(report));
    return;
  }
  const Request poll = polls.front();
  polls.pop_front();
  Complete(poll, 0, report, report.size());
}

// ---- The device's thread ----------------------------------------------------------------------

void UsbDevice::Serve(int socket) {
  Header header{};
  Bytes data;
  while (ReceiveAll(socket, &header, sizeof header)) {
    if (be32toh(header.message) == kUnlink) {
      OnUnlink(header);
      continue;
    }
    data.resize(header.to_host != 0 ? 0 : be32toh(header.length));
    if (!ReceiveAll(socket, data.data(), data.size())) break;
    OnSubmit(header, data);
  }
  shutdown(socket, SHUT_RDWR);
}

void UsbDevice::OnSubmit(const Header& header, const Bytes& data) {
  const Request request{header.sequence, be32toh(header.length)};
  const size_t endpoint = be32toh(header.endpoint);
  if (endpoint == 0) return OnControl(header, data);
  if (header.to_host == 0) return OnWrite(request, endpoint - 1, Type::kOutput, data);
  const std::lock_guard lock(mutex_);
  std::deque<Bytes>& reports = reports_[endpoint - 1];
  if (reports.empty()) return polls_[endpoint - 1].push_back(request);
  Complete(request, 0, reports.front(), reports.front().size());
  reports.pop_front();
}

// The host takes a request back.
void UsbDevice::OnUnlink(const Header& header) {
  const std::lock_guard lock(mutex_);
  size_t count = 0;
  const auto take = [&](std::deque<Request>& requests) {
    count += std::erase_if(requests, [&](const Request& request) {
      return request.sequence == header.flags_or_victim_or_status;
    });
  };
  for (auto& [interface_number, polls] : polls_)
    take(polls);
  take(held_);
  Header done{};
  done.message = htobe32(kUnlinkDone);
  done.sequence = header.sequence;
  done.flags_or_victim_or_status = htobe32(static_cast<uint32_t>(count > 0 ? -ECONNRESET : 0));
  SendAll(&done, sizeof done);
}

void UsbDevice::OnWrite(Request request, size_t interface_number, Type type, const Bytes& report) {
  const Answer answer = handler_ ? handler_(interface_number, type, report) : Answer::kTake;
  const std::lock_guard lock(mutex_);
  if (answer == Answer::kTake) return Complete(request, 0, {}, request.length);
  if (answer == Answer::kHold && !pulled_out_) return held_.push_back(request);
  Complete(request, answer == Answer::kStall ? -EPIPE : -EPROTO, {}, 0);
}

void UsbDevice::OnControl(const Header& header, const Bytes& data) {
  const uint8_t* const setup = header.setup;
  const Request request{header.sequence, be32toh(header.length)};
  const unsigned high_value = setup[3];
  const size_t index = setup[4];
  Bytes answer;
  bool known = true;
  switch (static_cast<unsigned>(setup[0] << 8 | setup[1])) {
    case kSetReport:
      return OnWrite(request, index, static_cast<Type>(high_value), data);
    case kGetDescriptor:
      known = Descriptor(high_value, setup[2], answer);
      break;
    case kGetInterfaceDescriptor:
      known = high_value == kReportDescriptor && index < interfaces_.size();
      if (known) answer = interfaces_[index].report_descriptor;
      break;
    case kGetStatus:
      answer = {0, 0};
      break;
    default:  // of what is asked nothing is known; what is set is taken
      known = (setup[0] & 0x80) == 0;
  }
  const std::lock_guard lock(mutex_);
  Complete(request, known ? 0 : -EPIPE, answer, answer.size());
}

bool UsbDevice::Descriptor(unsigned type, unsigned index, Bytes& descriptor) const {
  switch (type) {
    case kDevice:
      descriptor = {18, kDevice, 0, 2, 0, 0, 0, kPacketSize};
      for (const unsigned id : {identity_.vendor_id, identity_.product_id, identity_.version})
        Append(descriptor, {Low(id), High(id)});
      Append(descriptor, {0, 1, 0, 1});
      return true;
    case kConfiguration:
      descriptor = Configuration();
      return true;
    case kString:
      descriptor = index == 0 ? Bytes{4, kString, 9, 4} : Bytes{4, kString, 'V', 0};
      return true;
    default:
      return false;
  }
}

Bytes UsbDevice::Configuration() const {
  Bytes all{9, kConfiguration, 0, 0, static_cast<uint8_t>(interfaces_.size()), 1, 0, 0xA0, 50};
  for (unsigned i = 0; i < interfaces_.size(); ++i) {
    const auto& [descriptor, out_endpoint] = interfaces_[i];
    const auto size = static_cast<unsigned>(descriptor.size());
    Append(all, {9, 4, i, 0, out_endpoint ? 2u : 1u, 3, 0, 0, 0});
    Append(all, {9, 0x21, 0x11, 1, 0, 1, kReportDescriptor, Low(size), High(size)});
    Append(all, {7, 5, 0x81 + i, 3, kPacketSize, 0, 1});
    if (out_endpoint) Append(all, {7, 5, 1 + i, 3, kPacketSize, 0, 1});
  }
  all[2] = Low(static_cast<unsigned>(all.size()));
  all[3] = High(static_cast<unsigned>(all.size()));
  return all;
}

// With the lock held, as the next one is called.
void UsbDevice::Complete(Request request, int error, std::span<const uint8_t> data, size_t length) {
  data = data.first(std::min<size_t>(data.size(), request.length));
  Header done{};
  done.message = htobe32(kSubmitDone);
  done.sequence = request.sequence;
  done.flags_or_victim_or_status = htobe32(static_cast<uint32_t>(error));
  done.length = htobe32(static_cast<uint32_t>(std::min<size_t>(length, request.length)));
  SendAll(&done, sizeof done, data);
}

// Where the other end has gone, nobody misses it.
void UsbDevice::SendAll(const void* data, size_t size, std::span<const uint8_t> more) {
  send(socket_, data, size, MSG_NOSIGNAL | (more.empty() ? 0 : MSG_MORE));
  if (!more.empty()) send(socket_, more.data(), more.size(), MSG_NOSIGNAL);
}

}  // namespace perilink::sim
