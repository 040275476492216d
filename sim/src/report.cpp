#include "sim/report.h"

#include <algorithm>

namespace perilink::sim {

uint8_t CheckOf(std::span<const uint8_t> bytes) {
  unsigned check = 0x55;
  for (uint8_t byte : bytes)
    check -= byte;
  return static_cast<uint8_t>(check);
}

void Seal(std::span<uint8_t> report) {
  if (report.size() == Frame{}.size()) report.back() = CheckOf(report.first(report.size() - 1));
}

bool IsSealed(std::span<const uint8_t> report) {
  return report.size() == Frame{}.size() &&
         report.back() == CheckOf(report.first(report.size() - 1));
}

Bytes Closed(Bytes report) {
  report.resize(Frame{}.size());
  Seal(report);
  return report;
}

Frame MakeFrame(uint8_t command, uint8_t length_byte, std::span<const uint8_t> payload,
                uint16_t address) {
  Frame frame{};
  frame[0] = kCommandReportId;
  frame[1] = command;
  frame[3] = static_cast<uint8_t>(address >> 8);
  frame[4] = static_cast<uint8_t>(address);
  frame[5] = length_byte;
  std::copy_n(payload.begin(), std::min<size_t>(payload.size(), 10), frame.begin() + 6);
  Seal(frame);
  return frame;
}

Frame MakeEvent(uint8_t flags) {
  return MakeFrame(command::kEvent, 1, {&flags, 1});
}

}  // namespace perilink::sim
