// A fuzz input, taken apart from its front. Beyond its end everything is 0.
#ifndef PERILINK_FUZZ_SUPPORT_INPUT_H_
#define PERILINK_FUZZ_SUPPORT_INPUT_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>

namespace perilink::fuzz {

class Input {
 public:
  Input(const uint8_t* data, size_t size) : rest_(data, size) {}

  bool Empty() const { return rest_.empty(); }

  // As many as are left, at most `count`.
  std::span<const uint8_t> Bytes(size_t count) {
    const auto taken = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }
  // Into all of `target`.
  void Fill(std::span<uint8_t> target) {
    const auto taken = Bytes(target.size());
    const auto end = std::copy(taken.begin(), taken.end(), target.begin());
    std::fill(end, target.end(), uint8_t{0});
  }
  uint8_t Byte() {
    uint8_t byte = 0;
    Fill({&byte, 1});
    return byte;
  }
  uint16_t Word() {
    const uint8_t high = Byte();
    return static_cast<uint16_t>(high << 8 | Byte());
  }
  // 0 to limit - 1.
  size_t Below(size_t limit) { return Word() % limit; }

 private:
  std::span<const uint8_t> rest_;
};

// A copy in an allocation of its exact size, so that a sanitizer sees every read past its end.
class ExactCopy {
 public:
  // The first `size` bytes; `filler` for those that are missing.
  ExactCopy(std::span<const uint8_t> bytes, size_t size, uint8_t filler = 0)
      : bytes_(std::make_unique<uint8_t[]>(size)), size_(size) {
    const size_t copied = std::min(bytes.size(), size);
    std::copy_n(bytes.begin(), copied, bytes_.get());
    std::fill(bytes_.get() + copied, bytes_.get() + size, filler);
  }
  explicit ExactCopy(std::span<const uint8_t> bytes) : ExactCopy(bytes, bytes.size()) {}

  uint8_t* data() { return bytes_.get(); }
  const uint8_t* data() const { return bytes_.get(); }
  size_t size() const { return size_; }
  std::span<const uint8_t> span() const { return {bytes_.get(), size_}; }

 private:
  std::unique_ptr<uint8_t[]> bytes_;
  size_t size_;
};

}  // namespace perilink::fuzz

#endif  // PERILINK_FUZZ_SUPPORT_INPUT_H_
