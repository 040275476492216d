#include "commands/layer_keys.h"

#include <algorithm>
#include <optional>

#include "platform/runtime.h"
#include "transport/link.h"
#include "transport/read_address.h"

namespace perilink {
namespace {

constexpr int kTries = 2;
constexpr uint32_t kTryTimeoutMs = 200;
constexpr size_t kPiece = kFrameDataCapacity;

struct Range {
  uint16_t address;
  uint16_t size;
};

Range LayerRange(uint8_t layer) {
  if (layer < 1 || layer > PERILINK_LAYERS) return {.address = 0, .size = 1};
  return {.address = Perilink_LayerAddress(layer), .size = PERILINK_LAYER_SIZE};
}

class LayerRead {
 public:
  explicit LayerRead(const Range& range)
      : range_(range), keys_((range.size + kPiece - 1) / kPiece * kPiece) {}

  std::vector<uint8_t> Run(const std::wstring& path) {
    if (!link_.Open(path)) return {};
    for (size_t at = 0; at < keys_.size(); at += kPiece) {
      if (!ReadPiece(at)) return {};
      // The device echoes addresses after all: an answer that was taken without a matching address
      // may have been a late one to another piece.
      if (first_unproven_ && echo_.known()) {
        at = *first_unproven_;
        first_unproven_.reset();
        if (!ReadPiece(at)) return {};
      }
    }
    keys_.resize(range_.size);
    return std::move(keys_);
  }

 private:
  bool ReadPiece(size_t at) {
    const auto address = static_cast<uint16_t>(range_.address + at);
    const CommandFrame request = BuildFrame(PERILINK_COMMAND_READ_MEMORY, kPiece, {}, address);
    for (int tries = kTries; tries > 0; --tries) {
      link_.Listen();
      if (link_.Write(request) && TakeAnswer(address, at)) return true;
    }
    return false;
  }

  bool TakeAnswer(uint16_t address, size_t at) {
    const int64_t start_micros = MonotonicMicros();
    for (uint32_t passed_ms = 0; passed_ms < kTryTimeoutMs;) {
      const Arrival arrival = link_.Next(kTryTimeoutMs - passed_ms);
      if (arrival == Arrival::kFailure) return false;
      if (arrival == Arrival::kReport) {
        const std::optional<ValidFrame> frame = link_.frame();
        if (frame && Answers(**frame, address, at)) {
          std::copy_n((*frame)->data, kPiece, keys_.begin() + static_cast<ptrdiff_t>(at));
          return true;
        }
      }
      passed_ms = static_cast<uint32_t>((MonotonicMicros() - start_micros) / 1000);
    }
    return false;
  }

  bool Answers(const CommandFrame& frame, uint16_t address, size_t at) {
    if (frame.command != PERILINK_COMMAND_READ_MEMORY) return false;
    const uint16_t answered = FrameAddress(frame);
    const AddressMatch match = echo_.Judge({address, kPiece}, {answered, FrameDataLength(frame)});
    if (match == AddressMatch::kRight) return true;
    if (match != AddressMatch::kUnproven || answered != 0) return false;
    if (!first_unproven_) first_unproven_ = at;
    return true;
  }

  const Range range_;
  std::vector<uint8_t> keys_;
  Link link_{sizeof(CommandFrame)};
  AddressEcho echo_{kTries - 1};
  std::optional<size_t> first_unproven_;
};

}  // namespace

std::vector<uint8_t> LoadLayerKeys(const std::wstring& path, uint8_t layer) {
  return LayerRead(LayerRange(layer)).Run(path);
}

}  // namespace perilink
