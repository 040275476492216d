// A HID report descriptor, as the kernel hands on what a device sent.
#include <cstddef>
#include <cstdint>
#include <span>

#include "hidraw/report_descriptor.h"
#include "support/require.h"

namespace perilink::fuzz {
namespace {

using platform::CollectionReports;
using platform::kReportKinds;
using platform::ParseReportDescriptor;
using platform::ReportDescriptor;

constexpr size_t kLongestReport = 1 + 16384;

void Check(const ReportDescriptor& descriptor, std::span<const uint8_t> bytes) {
  Require(descriptor.collections.size() <= bytes.size(), "an item makes one collection at most");
  for (const auto& collection : descriptor.collections) {
    for (size_t kind = 0; kind < kReportKinds; ++kind) {
      const CollectionReports& reports = collection.reports[kind];
      Require(reports.length <= kLongestReport, "no report is longer than the kernel's longest");
      Require((reports.length > 0) == reports.ids.any(), "reports have a length, nothing has none");
      if (descriptor.numbered[kind]) {
        Require(!reports.ids.test(0), "beside reports with ids there are none without");
      } else {
        Require(reports.ids.count() <= 1 && (reports.ids.none() || reports.ids.test(0)),
                "without ids there is one report");
      }
    }
  }
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using perilink::fuzz::ParseReportDescriptor;
  const std::span bytes(data, size);
  const auto whole = ParseReportDescriptor(bytes);
  perilink::fuzz::Check(whole, bytes);
  const auto half = ParseReportDescriptor(bytes.first(size / 2));
  perilink::fuzz::Check(half, bytes.first(size / 2));
  perilink::fuzz::Require(half.collections.size() <= whole.collections.size(),
                          "what stands before a cut counts");
  return 0;
}
