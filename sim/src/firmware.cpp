#include "sim/firmware.h"

#include <algorithm>
#include <span>

namespace perilink::sim {
namespace {

constexpr size_t kStatus = 2;
constexpr size_t kLength = 5;
constexpr size_t kData = 6;
constexpr size_t kDataCapacity = 10;
constexpr size_t kMaxDescriptor = 30;
constexpr uint8_t kStatusRefused = 0x01;

template <size_t N>
void Store(std::array<uint8_t, N>& target, const Frame& request) {
  std::copy_n(request.begin() + kData, N, target.begin());
}

size_t DeclaredLength(const Frame& request) {
  return request[kLength] & 0x7Fu;
}

uint8_t High(uint16_t value) {
  return static_cast<uint8_t>(value >> 8);
}
uint8_t Low(uint16_t value) {
  return static_cast<uint8_t>(value);
}

}  // namespace

Firmware::Firmware(const FirmwareOptions& options, const FlashImage& flash, Battery& battery)
    : options_(options), flash_(flash), default_flash_(flash), battery_(battery) {}

bool Firmware::ReceiverAnswers(uint8_t command) {
  switch (command) {
    case command::kOnLine:
    case command::kPair:
    case command::kPairStatus:
    case command::kSetDongleRgb:
    case command::kGetDongleRgb:
    case command::kSetLongRange:
    case command::kGetLongRange:
    case command::kSetBarMode:
    case command::kGetBarMode:
    case command::kSetIndicator:
    case command::kGetIndicator:
      return true;
    default:
      return false;
  }
}

std::optional<Firmware::Answer> Firmware::Handle(const Frame& request, uint64_t now_micros,
                                                 std::optional<size_t> flash_bytes) {
  const uint8_t command = request[1];
  if (request[0] != kCommandReportId || !IsSealed(request)) return std::nullopt;
  if (asleep_ && !ReceiverAnswers(command)) return std::nullopt;

  Answer answer{request, options_.latency_micros};
  if (const auto own = handlers_.find(command); own != handlers_.end() && own->second) {
    const std::optional<Frame> reply = own->second(request);
    if (!reply) return std::nullopt;
    answer.frame = *reply;
  } else if (!AnswerMemory(request, answer.frame, flash_bytes)) {
    // A write is acknowledged by its exact echo; every other reply names the keyboard.
    if (options_.keyboard) answer.frame[kLength] |= kKeyboardBit;
    if (!AnswerReceiver(request, now_micros, answer.frame) && !AnswerQuery(request, answer.frame)) {
      AnswerSetting(request, answer.frame);
    }
  }
  if (command == command::kClearSetting) answer.delay_micros = options_.clear_micros;
  Seal(answer.frame);
  return answer;
}

bool Firmware::AnswerReceiver(const Frame& request, uint64_t now_micros, Frame& reply) {
  switch (request[1]) {
    case command::kOnLine: {
      const auto& address = options_.address;
      const auto on_line = static_cast<uint8_t>(asleep_ ? 0 : 1);
      Fill(reply, {on_line, address[0], address[1], address[2]});
      return true;
    }
    case command::kPair:
      Store(state_.pair_request, request);
      pairing_since_micros_ = now_micros;
      return true;
    case command::kPairStatus:
      AnswerPairStatus(now_micros, reply);
      return true;
    case command::kSetDongleRgb:
      reply[kStatus] = options_.dongle_status;
      if (reply[kStatus] == 0) Store(state_.dongle_rgb, request);
      return true;
    case command::kGetDongleRgb:
      Fill(reply, state_.dongle_rgb);
      return true;
    case command::kSetLongRange:
      state_.long_range = request[kData];
      return true;
    case command::kGetLongRange:
      Fill(reply, {state_.long_range});
      return true;
    case command::kSetBarMode:
      // The mode travels as six bytes; a mode of 0 means that the bar is off.
      std::copy_n(request.begin() + kData, 6, state_.bar_mode.begin());
      state_.bar_mode[6] = request[kData] != 0 ? 1 : 0;
      return true;
    case command::kGetBarMode:
      Fill(reply, state_.bar_mode);
      return true;
    case command::kSetIndicator:
      Store(state_.indicator, request);
      return true;
    case command::kGetIndicator:
      Fill(reply, state_.indicator);
      return true;
    default:
      return false;
  }
}

bool Firmware::AnswerQuery(const Frame& request, Frame& reply) {
  switch (request[1]) {
    case command::kDeviceInfo: {
      // The host's four random bytes come back in front of the device's three.
      const auto& info = options_.info;
      Fill(reply, {request[kData], request[kData + 1], request[kData + 2], request[kData + 3],
                   info[0], info[1], info[2]});
      return true;
    }
    case command::kBattery: {
      const BatteryReading reading = battery_.Read();
      Fill(reply,
           {reading.level, reading.charging, High(reading.millivolts), Low(reading.millivolts)});
      return true;
    }
    case command::kReadConfig:
      Fill(reply, {state_.config});
      return true;
    case command::kVersion:
      Fill(reply, {High(options_.version), Low(options_.version)});
      return true;
    case command::kSlaveVersion:
      Fill(reply, {High(options_.slave_version), Low(options_.slave_version)});
      return true;
    case command::kGetSerial:
      Fill(reply, options_.serial);
      return true;
    case command::kRssi:
      Fill(reply, {options_.rssi});
      return true;
    case command::kReadCidMid:
      AnswerCidMid(reply);
      return true;
    default:
      return false;
  }
}

bool Firmware::AnswerMemory(const Frame& request, Frame& reply, std::optional<size_t> flash_bytes) {
  const size_t address = request[3] * 256u + request[4];
  const size_t length = DeclaredLength(request);
  const bool fits = length <= kDataCapacity && address + length <= kFlashSize;
  if (request[1] == command::kWriteMemory) {
    if (fits) {
      const size_t stored = std::min(length, flash_bytes.value_or(length));
      flash_.SetBytes(address, std::span(request).subspan(kData, stored));
    } else {
      reply[kStatus] = kStatusRefused;
    }
    return true;
  }
  if (request[1] != command::kReadMemory) return false;
  if (fits) {
    Fill(reply, flash_.bytes().subspan(address, length));
  } else {
    Fill(reply, {});
    reply[kStatus] = kStatusRefused;
  }
  return true;
}

// What only stores something is acknowledged by an echo, and so is a command that the firmware
// does not know.
void Firmware::AnswerSetting(const Frame& request, Frame& reply) {
  switch (request[1]) {
    case command::kDriverStatus:
      state_.driver_status = request[kData];
      break;
    case command::kClearSetting:
      flash_ = default_flash_;
      break;
    case command::kVidPid:
      Store(state_.vid_pid, request);
      break;
    case command::kDescriptorString:
      AnswerDescriptor(request, reply);
      break;
    case command::kSetConfig:
      state_.config = request[kData];
      break;
    case command::kMtkMode:
      state_.mtk_mode = true;
      break;
    case command::kDongleIdToMouse:
      Store(state_.dongle_id, request);
      break;
    case command::kSetSerial:
      Store(options_.serial, request);
      break;
    case command::kWriteCidMid:
      options_.cid = request[kData];
      options_.mid = request[kData + 1];
      AnswerCidMid(reply);
      break;
    default:
      break;
  }
}

void Firmware::AnswerDescriptor(const Frame& request, Frame& reply) {
  const size_t total = request[3];
  const size_t offset = request[4];
  const size_t length = DeclaredLength(request);
  if (total > kMaxDescriptor || length > kDataCapacity || offset + length > total) {
    reply[kStatus] = kStatusRefused;
    return;
  }
  state_.descriptor.resize(total);
  std::copy_n(request.begin() + kData, length,
              state_.descriptor.begin() + static_cast<ptrdiff_t>(offset));
}

void Firmware::AnswerPairStatus(uint64_t now_micros, Frame& reply) {
  enum : uint8_t { kIdle, kPairing, kPaired };
  uint8_t status = kIdle;
  if (pairing_since_micros_) {
    const uint64_t elapsed = now_micros - *pairing_since_micros_;
    status = elapsed < options_.pairing_micros ? kPairing : kPaired;
  }
  Fill(reply, {status});
}

void Firmware::AnswerCidMid(Frame& reply) {
  reply[kLength] = static_cast<uint8_t>(3 | (options_.cid_mid_flag ? kKeyboardBit : 0));
  std::fill_n(reply.begin() + kData, kDataCapacity, uint8_t{0});
  reply[kData] = options_.cid;
  reply[kData + 1] = options_.mid;
  reply[kData + 2] = CheckOf({&options_.cid, 1});  // over the first byte alone
}

// The target's bit stays as it stands in the reply: the request's, or the keyboard's own.
void Firmware::Fill(Frame& reply, std::span<const uint8_t> data) {
  const size_t length = std::min(data.size(), kDataCapacity);
  const uint8_t target = reply[kLength] & kKeyboardBit;
  reply[kLength] = static_cast<uint8_t>(target | length | (options_.keyboard ? kKeyboardBit : 0));
  std::fill_n(reply.begin() + kData, kDataCapacity, uint8_t{0});
  std::copy_n(data.begin(), length, reply.begin() + kData);
}

void Firmware::Fill(Frame& reply, std::initializer_list<uint8_t> data) {
  Fill(reply, std::span(data.begin(), data.size()));
}

}  // namespace perilink::sim
