#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "perilink_platform/world.h"
#include "server/state.h"
#include "simulation.h"
#include "transport/frame.h"

namespace perilink::testing {
namespace {

constexpr size_t kWritesBeforeADrop = 5;

uint32_t SerialOf(const CommandFrame& frame) {
  uint32_t serial = 0;
  std::memcpy(&serial, frame.data, sizeof(serial));
  return serial;
}

CommandFrame FrameOf(const uint8_t* bytes) {
  CommandFrame frame;
  std::memcpy(&frame, bytes, sizeof(frame));
  return frame;
}

}  // namespace

bool Model::Matches(const Request& request, const CommandFrame& frame) {
  if (frame.command != request.command) return false;
  if (request.command != kCommandReadMemory) return SerialOf(frame) == request.serial;
  const uint32_t address = static_cast<uint32_t>(frame.address_high << 8 | frame.address_low);
  return address >= request.serial && address < request.serial + 10 * request.frames;
}

size_t Model::ModelFrames() const {
  size_t frames = 0;
  for (const Request& request : requests_)
    frames += request.frames;
  return frames;
}

void Model::Check() {
  const ServerState::Queues queues = ServerState::Instance().LockQueues();
  const size_t queued = queues.commands.Size();
  if (queued == 0 && !requests_.empty()) {
    if (requests_.size() == 1 && requests_[0].command == kCommandBatteryLevel &&
        writes_of_frame_ < kWritesBeforeADrop) {
      ++answered_;
    } else {
      if (writes_of_frame_ < kWritesBeforeADrop) Broken("requests vanished");
      if (!queues.replies.Empty()) Broken("half an answer outlived a drop");
      dropped_ += requests_.size();
    }
    requests_.clear();
    return;
  }
  if (queued > ModelFrames()) Broken("the queue holds what nobody queued");
  size_t gone = ModelFrames() - queued;
  if (gone > 0 && gone == requests_[0].frames && requests_[0].command == kCommandBatteryLevel) {
    requests_.pop_front();
    ++answered_;
    gone = 0;
  }
  if (gone > 0 && gone >= requests_[0].frames) Broken("an answer was not reported");
  size_t at = 0;
  for (const Request& request : requests_)
    for (size_t i = &request == &requests_[0] ? gone : 0; i < request.frames; ++i)
      if (!Matches(request, queues.commands.At(at++).frame)) Broken("the queue is out of order");
}

void Model::Queue(uint8_t command, uint32_t serial, size_t frames,
                  const std::function<void()>& queue) {
  Check();
  requests_.push_back({command, serial, frames});
  queue();
  Check();
}

void Model::Start(const std::function<void()>& start) {
  Check();
  dropped_ += requests_.size();
  requests_.clear();
  start();
  Check();
}

// Under the server's lock, so the queue itself can't be looked at.
void Model::OnWrite(const std::vector<uint8_t>& report, bool succeeded) {
  const CommandFrame frame = FrameOf(report.data());
  const bool poll = (frame.command == kCommandOnLine || frame.command == kCommandBatteryLevel) &&
                    SerialOf(frame) == 0;
  if (poll) return;  // the optimiser's own, on handles of its own
  if (frame.checksum != FrameChecksum(frame)) Broken("a frame without its checksum");
  const uint64_t now_ms = platform::NowMicros() / 1000;
  if (now_ms - last_write_ms_ < least_spacing_ms_) Broken("writes too close to each other");
  last_write_ms_ = now_ms;
  // The head's frames only. A battery request before it may have been answered unseen.
  const auto head = std::find_if(requests_.begin(), requests_.end(), [](const Request& request) {
    return request.command != kCommandBatteryLevel;
  });
  const auto end = head == requests_.end() ? head : head + 1;
  if (std::none_of(requests_.begin(), end, [&](const Request& r) { return Matches(r, frame); }))
    Broken("a frame was written out of turn");
  if (report != last_written_) writes_of_frame_ = 0;
  last_written_ = report;
  if (succeeded) ++writes_of_frame_;
}

void Model::OnLevel(uint8_t level) {
  if (level > 100) Broken("a level above 100 percent");
  const bool forced = level == 0 || level == 15 || level == 100;
  // 0 is also what a battery request is answered with before the first reading of all.
  if (last_level_ > 0 && !forced && std::abs(level - last_level_) > 1) Broken("the level jumped");
  last_level_ = level;
}

void Model::OnCallback(const uint8_t* bytes, const uint8_t* data, uint32_t length) {
  const CommandFrame frame = FrameOf(bytes);
  if (frame.command == kCommandEvent) {
    if (length != 10) Broken("an event of another length");
  } else if (frame.command == kCommandBatteryLevel && SerialOf(frame) == 0) {
    if (length != 4 || frame.checksum != 0x49) Broken("a level report of another form");
    OnLevel(data[0]);
  } else {
    // A battery request before it may have been answered by the optimiser.
    while (!requests_.empty() && requests_[0].command == kCommandBatteryLevel &&
           !Matches(requests_[0], frame)) {
      requests_.pop_front();
      ++answered_;
    }
    if (requests_.empty() || !Matches(requests_[0], frame)) Broken("an answer nobody waits for");
    if (answers_are_exact && frame.command != kCommandReadMemory && length == 4 &&
        frame.command != kCommandOnLine && frame.command != kCommandBatteryLevel &&
        std::memcmp(data, frame.data, 4) != 0)
      Broken("another request's data");
    requests_.pop_front();
    ++answered_;
  }
  Check();
}

}  // namespace perilink::testing
