// The demo's step through the background server: reads the whole configuration, changes a colour as
// a host's editor would, reads it back, and restores it.
#include <algorithm>
#include <utility>
#include <vector>

#include "commands/demo_steps.h"
#include "common/config.h"
#include "common/config_parts.h"
#include "device/online.h"
#include "exit_codes.h"
#include "perilink/protocol.h"
#include "perilink/protocol_data.h"
#include "perilink/server.h"
#include "server/server_session.h"
#include "system.h"
#include "terminal/text.h"

namespace perictl {
namespace {

// The server says nothing when it gives up; a whole read takes a second or two.
constexpr uint32_t kReadTimeoutMs = 10'000;
constexpr uint32_t kWriteTimeoutMs = 2'000;
constexpr int kMostRepeats = 5;
constexpr uint32_t kPauseMs = 200;

bool Same(const ProtocolData& a, const ProtocolData& b) {
  return perilink::tools::ConfigDifferences(a, b).empty();
}

// The answers to one command; what the device reports in between is let pass.
class Editor {
 public:
  explicit Editor(const DemoState& state)
      : path_(state.device.path), session_(state.device.path, state.device.keyboard) {}

  ProtocolData Read(std::vector<uint8_t>& image) {
    UsbServer_ReadAllFlashData();
    image = Await(PERILINK_COMMAND_READ_MEMORY, kReadTimeoutMs, "its configuration").data;
    if (image.size() != PERILINK_FLASH_IMAGE_SIZE) FailUnanswered(path_, "its configuration");
    ProtocolData record{};
    ProtocolDataParser(image.data(), &record);
    return record;
  }
  // Reads until it is what was expected, or the same twice. An answer that comes late, as it may on
  // a busy machine, is taken for that to the next frame, and what follows is shifted; the pause
  // lets the last of them pass.
  ProtocolData Read(ProtocolData expected) {
    std::vector<uint8_t> image;
    ProtocolData record = Read(image);
    for (int again = 0; again < kMostRepeats && !Same(record, expected); ++again) {
      Sleep(kPauseMs);
      expected = std::exchange(record, Read(image));
    }
    return record;
  }

  // Writes what differs from the configuration that was read or written last: one field.
  void Write(ProtocolData record) {
    ProtocolDataUpdate(&record);
    Await(PERILINK_COMMAND_WRITE_MEMORY, kWriteTimeoutMs, "taking its new configuration");
  }

 private:
  ServerReport Await(uint8_t command, uint32_t timeout_ms, const char* what) {
    const uint64_t end_ms = GetTickCount64() + timeout_ms;
    for (uint64_t now_ms = GetTickCount64(); now_ms < end_ms; now_ms = GetTickCount64()) {
      const auto report = session_.Next(static_cast<uint32_t>(end_ms - now_ms));
      if (report && report->frame.command == command) return *report;
    }
    FailUnanswered(path_, what);
  }

  const std::string path_;
  ServerSession session_;
};

}  // namespace

void DemoConfiguration(DemoState& state) {
  Report& report = state.context.report;
  Editor editor(state);
  const uint64_t start_ms = GetTickCount64();
  std::vector<uint8_t> image;
  const ProtocolData first = editor.Read(image);
  const uint64_t took_ms = GetTickCount64() - start_ms;
  report.Fact("read", "whole read",
              std::to_string(image.size()) + " bytes in one callback, after " +
                  std::to_string(took_ms) + " ms",
              {{"bytes", image.size()}, {"ms", took_ms}});
  if (!LooksLikeConfig(perilink::tools::DeviceConfigFromImage(image))) {
    report.Fact("changed", "changed", "nothing: this is another kind of memory", nullptr);
    return;
  }

  // Read once more: it is what the device gets back in the end.
  const ProtocolData before = editor.Read(first);
  const size_t level = std::min<size_t>(before.current_dpi_level, std::size(before.dpi_levels) - 1);
  ProtocolData changed = before;
  for (uint8_t& part : changed.dpi_levels[level].color.bytes)
    part = static_cast<uint8_t>(~part);
  editor.Write(changed);
  const ProtocolData after = editor.Read(changed);
  editor.Write(before);
  const ProtocolData restored = editor.Read(before);

  const auto colour = [level](const ProtocolData& record) {
    return HexBytes(record.dpi_levels[level].color.bytes);
  };
  const std::string field = "dpi_levels[" + std::to_string(level) + "].color";
  if (!Same(changed, after) || !Same(before, restored)) {
    throw Failure(ExitCode::kRefused, field + " was set to " + colour(changed) + " and reads " +
                                          colour(after) + "; set back, it reads " +
                                          colour(restored));
  }
  report.Fact("changed", field,
              "was " + colour(before) + "; set to and read as " + colour(after) + "; restored",
              {{"field", field},
               {"before", colour(before)},
               {"set", colour(changed)},
               {"read", colour(after)},
               {"restored", colour(restored)}});
}

}  // namespace perictl
