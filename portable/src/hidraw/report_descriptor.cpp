#include "hidraw/report_descriptor.h"

#include <algorithm>
#include <optional>

namespace perilink::platform {
namespace {

// An item's first byte without its two size bits.
enum Item : uint8_t {
  kInput = 0x80,
  kOutput = 0x90,
  kFeature = 0xB0,
  kCollection = 0xA0,
  kEndCollection = 0xC0,
  kUsagePage = 0x04,
  kReportSize = 0x74,
  kReportId = 0x84,
  kReportCount = 0x94,
  kPush = 0xA4,
  kPop = 0xB4,
  kUsage = 0x08,
};
constexpr uint8_t kMainItems = 0x00;
constexpr uint8_t kTypeBits = 0x0C;
constexpr uint8_t kLongItem = 0xFE;

// The kernel refuses devices beyond these.
constexpr size_t kDeepestPush = 4;
constexpr uint64_t kMostBits = 16384 * 8;

struct Globals {
  uint16_t usage_page = 0;
  uint32_t report_size = 0;  // bits
  uint32_t report_count = 0;
  uint8_t report_id = 0;
};

class Walker {
 public:
  ReportDescriptor Walk(std::span<const uint8_t> bytes) {
    while (!bytes.empty() && TakeItem(bytes)) {
    }
    Measure();
    return std::move(result_);
  }

 private:
  // Takes one item off the front. False if it is broken.
  bool TakeItem(std::span<const uint8_t>& bytes) {
    if (bytes[0] == kLongItem) {
      if (bytes.size() < 3 || bytes.size() - 3 < bytes[1]) return false;
      bytes = bytes.subspan(size_t{3} + bytes[1]);
      return true;
    }
    const size_t size = (bytes[0] & 3) == 3 ? 4 : bytes[0] & 3;
    if (bytes.size() - 1 < size) return false;
    uint32_t value = 0;
    for (size_t i = size; i > 0; --i)
      value = value << 8 | bytes[i];
    const auto item = static_cast<uint8_t>(bytes[0] & ~3);
    bytes = bytes.subspan(1 + size);
    if (!Apply(item, value, size)) return false;
    if ((item & kTypeBits) == kMainItems) usage_.reset();
    return true;
  }

  bool Apply(uint8_t item, uint32_t value, size_t size) {
    switch (item) {
      case kInput:
        return AddField(kInputReport);
      case kOutput:
        return AddField(kOutputReport);
      case kFeature:
        return AddField(kFeatureReport);
      case kCollection:
        if (depth_++ == 0) BeginCollection();
        return true;
      case kEndCollection:
        return depth_-- > 0;
      case kUsagePage:
        globals_.usage_page = static_cast<uint16_t>(value);
        return true;
      case kReportSize:
        globals_.report_size = value;
        return true;
      case kReportCount:
        globals_.report_count = value;
        return true;
      case kReportId:
        globals_.report_id = static_cast<uint8_t>(value);
        return value > 0 && value < 256;
      case kPush:
        pushed_.push_back(globals_);
        return pushed_.size() <= kDeepestPush;
      case kPop:
        if (pushed_.empty()) return false;
        globals_ = pushed_.back();
        pushed_.pop_back();
        return true;
      case kUsage:
        // Four bytes bring their page along. The first usage is the collection's.
        if (!usage_) usage_ = size == 4 ? value : uint32_t{globals_.usage_page} << 16 | value;
        return true;
      default:  // says nothing about reports
        return true;
    }
  }

  void BeginCollection() {
    HidCollection& begun = result_.collections.emplace_back();
    const uint32_t usage = usage_.value_or(uint32_t{globals_.usage_page} << 16);
    begun.usage_page = static_cast<uint16_t>(usage >> 16);
    begun.usage = static_cast<uint16_t>(usage);
  }

  // A report of one id may have fields in several collections: it is as long for each.
  bool AddField(ReportKind kind) {
    uint64_t& bits = bits_[kind][globals_.report_id];
    bits += uint64_t{globals_.report_size} * globals_.report_count;
    if (bits > kMostBits) {
      bits = 0;
      return false;
    }
    if (globals_.report_id != 0) result_.numbered[kind] = true;
    if (depth_ > 0) result_.collections.back().reports[kind].ids.set(globals_.report_id);
    return true;
  }

  void Measure() {
    for (HidCollection& collection : result_.collections) {
      for (size_t kind = 0; kind < kReportKinds; ++kind) {
        CollectionReports& reports = collection.reports[kind];
        // Beside reports with ids there are none without.
        if (result_.numbered[kind]) reports.ids.reset(0);
        for (size_t id = 0; reports.ids.any() && id < 256; ++id) {
          if (reports.ids.test(id))
            reports.length = std::max<size_t>(reports.length,
                                              1 + static_cast<size_t>((bits_[kind][id] + 7) / 8));
        }
      }
    }
  }

  ReportDescriptor result_;
  Globals globals_;
  std::vector<Globals> pushed_;
  std::optional<uint32_t> usage_;  // page in the high half
  int depth_ = 0;
  std::array<std::array<uint64_t, 256>, kReportKinds> bits_{};
};

}  // namespace

ReportDescriptor ParseReportDescriptor(std::span<const uint8_t> bytes) {
  return Walker().Walk(bytes);
}

}  // namespace perilink::platform
