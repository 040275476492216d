#include "upgrade/file_split.h"

#include <cstring>

#include "perilink/upgrade.h"
#include "platform/guard.h"
#include "upgrade/upgrade_record.h"

namespace perilink {
namespace {

constexpr uint32_t kSplitTimeoutMs = 10000;

bool SplitFile(const uint8_t* file, uint8_t* out, uint32_t* out_length, int32_t which) {
  const std::span<const uint8_t> image = FindImage(file, kUnknownLength, which);
  if (image.empty() || image.size() > UINT32_MAX) return false;
  std::memcpy(out, image.data(), image.size());
  *out_length = static_cast<uint32_t>(image.size());
  return true;
}

}  // namespace

std::span<const uint8_t> FindImage(const uint8_t* file, size_t readable, int32_t which) {
  UsbUpgradeFile main;
  UsbUpgradeFile slave;
  ParseUpgradeImage(main, file, nullptr, kSplitTimeoutMs, readable);
  ParseSlaveImage(main, file, nullptr, kSplitTimeoutMs, slave, readable);
  const UsbUpgradeFile& chosen = which == 0 ? main : slave;
  if (!chosen.valid) return {};
  const uint8_t* image = which == 0 ? file : file + main.header.slave_offset;
  return {image, static_cast<size_t>(ImageSize(chosen.header))};
}

}  // namespace perilink

bool UsbUpgrade_FileSplit(const uint8_t* file, uint32_t /*file_length*/, uint8_t* out,
                          uint32_t* out_length, int32_t which) {
  if (out == nullptr || out_length == nullptr) return false;
  const bool split =
      perilink::Guarded(false, [&] { return perilink::SplitFile(file, out, out_length, which); });
  if (!split) {
    *out_length = 0;
    out[0] = 0;
  }
  return split;
}
