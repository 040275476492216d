#include "sim/boot_loader.h"

#include <algorithm>
#include <utility>

#include "byte_order.h"
#include "sim/virtual_firmware.h"

namespace perilink::sim {
namespace {

constexpr size_t kMaxPayload = 32;
constexpr size_t kPayload = 17;  // position of the payload in a data packet

}  // namespace

BootLoader::BootLoader(BootOptions options) : options_(std::move(options)) {
  options_.report_length = std::max(options_.report_length, kPayload);
  if (options_.reset_command.empty()) {
    const uint8_t one = 1;
    const Frame reset = MakeFrame(command::kUpdateMode, 1, {&one, 1});
    options_.reset_command.assign(reset.begin(), reset.end());
  }
}

void BootLoader::Restart() {
  started_ = false;
  finished_ = false;
  received_.clear();
  arrived_.clear();
  version_.reset();
}

std::vector<Outgoing> BootLoader::OnPacket(std::span<const uint8_t> packet) {
  if (packet.size() < kPayload || finished_) return {};
  if (packet[1] == boot::kStart) return OnStart(packet);
  if (packet[1] == boot::kData) return OnData(packet);
  return {};
}

std::vector<Outgoing> BootLoader::OnStart(std::span<const uint8_t> packet) {
  Restart();
  started_ = true;
  erased_ = true;
  address_ = LoadBigEndian(packet, 5);
  expected_length_ = LoadBigEndian(packet, 9);
  return {{options_.packet_micros, Reply(packet, {boot::kStart})},
          {options_.packet_micros + options_.erase_micros,
           Reply(packet, {boot::kStatus, boot::kStatusMark, 1, 1})}};
}

std::vector<Outgoing> BootLoader::OnData(std::span<const uint8_t> packet) {
  const uint64_t now = options_.packet_micros;
  if (!started_) return {{now, Reply(packet, {boot::kError, boot::kErrorMark, kNotStarted})}};
  if (!StoreData(packet))
    return {{now, Reply(packet, {boot::kError, boot::kErrorMark, kBadPacket})}};
  std::vector<Outgoing> replies = {{now, Bytes(packet.begin(), packet.end())}};
  if (packet[2] == boot::kLast) {
    replies.push_back({now + options_.verify_micros, Finish(packet)});
  }
  return replies;
}

bool BootLoader::StoreData(std::span<const uint8_t> packet) {
  const size_t length = packet[3];
  const uint32_t address = LoadBigEndian(packet, 5);
  if (length == 0 || length > kMaxPayload || kPayload + length > packet.size()) return false;
  if (address < address_) return false;
  const size_t offset = address - address_;
  const size_t end = offset + length;
  if (end > (expected_length_ != 0 ? expected_length_ : kMaxFirmware)) return false;
  if (received_.size() < end) {
    received_.resize(end, 0xFF);
    arrived_.resize(end, false);
  }
  std::copy_n(packet.begin() + kPayload, length,
              received_.begin() + static_cast<ptrdiff_t>(offset));
  std::fill_n(arrived_.begin() + static_cast<ptrdiff_t>(offset), length, true);
  return true;
}

Bytes BootLoader::Finish(std::span<const uint8_t> packet) {
  const bool complete = std::find(arrived_.begin(), arrived_.end(), false) == arrived_.end() &&
                        (expected_length_ == 0 || received_.size() == expected_length_);
  if (!complete) return Reply(packet, {boot::kError, boot::kErrorMark, kIncomplete});
  version_ = VirtualFirmwareVersion(received_);
  if (!version_ && !options_.accept_any_firmware) {
    return Reply(packet, {boot::kError, boot::kErrorMark, kBadFirmware});
  }
  erased_ = false;
  finished_ = true;
  return Reply(packet, {boot::kStatus, boot::kStatusMark, boot::kStatusEnd, 0});
}

Bytes BootLoader::Reply(std::span<const uint8_t> packet,
                        std::initializer_list<uint8_t> from_byte_1) const {
  Bytes reply(options_.report_length);
  reply[0] = packet[0];
  std::copy(from_byte_1.begin(), from_byte_1.end(), reply.begin() + 1);
  return reply;
}

}  // namespace perilink::sim
