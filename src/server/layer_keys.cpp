#include "server/layer_keys.h"

#include <algorithm>

#include "platform/handles.h"
#include "platform/overlapped_read.h"
#include "transport/exchange.h"
#include "transport/frame.h"

namespace perilink {
namespace {

constexpr int kTries = 2;
constexpr DWORD kTryTimeoutMs = 200;
constexpr size_t kPiece = kFrameDataCapacity;
constexpr uint16_t kLayerSize = 0x200;

struct Range {
  uint16_t address;
  uint16_t size;
};

Range LayerRange(uint8_t layer) {
  if (layer < 1 || layer > 3) return {.address = 0, .size = 1};
  return {.address = static_cast<uint16_t>((layer - 1) * kLayerSize), .size = kLayerSize};
}

bool IsAnswer(const uint8_t* report) {
  constexpr size_t kChecksumAt = offsetof(CommandFrame, checksum);
  return ChecksumRange(report, 0, kChecksumAt) == report[kChecksumAt] &&
         report[offsetof(CommandFrame, command)] == kCommandReadMemory;
}

bool ReadPiece(const UniqueFile& write, const UniqueFile& read, uint16_t address, uint8_t* piece) {
  const CommandFrame request = BuildFrame(kCommandReadMemory, kPiece, {}, address);
  OverlappedRead answer;
  if (!answer.has_event()) return false;
  answer.Post(read.Get(), sizeof(CommandFrame));
  for (int tries = 0; tries < kTries; ++tries) {
    DWORD written = 0;
    if (WriteFile(write.Get(), FrameBytes(request).data(), sizeof(request), &written, nullptr) ==
            FALSE ||
        !answer.Wait(kTryTimeoutMs))
      continue;
    const uint8_t* report = answer.buffer().data();
    if (!IsAnswer(report)) return false;
    std::copy_n(report + offsetof(CommandFrame, data), kPiece, piece);
    return true;
  }
  return false;
}

}  // namespace

std::vector<uint8_t> LoadLayerKeys(const std::wstring& path, uint8_t layer) {
  const Range range = LayerRange(layer);
  const size_t pieces = (range.size + kPiece - 1) / kPiece;
  std::vector<uint8_t> keys(pieces * kPiece);
  const UniqueFile write(OpenHidWriteHandle(path));
  const UniqueFile read(OpenHidReadHandle(path));
  for (size_t i = 0; i < pieces; ++i) {
    const auto address = static_cast<uint16_t>(range.address + i * kPiece);
    if (!ReadPiece(write, read, address, &keys[i * kPiece])) return {};
  }
  keys.resize(range.size);
  return keys;
}

}  // namespace perilink
