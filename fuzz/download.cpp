// A boot loader's replies during a download. An input says how the packets are sent and how many
// there are, then, for each packet that is written, what the boot loader does.
#include "upgrade/download.h"

#include <algorithm>
#include <vector>

#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"
#include "sim/scripted_device.h"
#include "sim/upgrade_file.h"
#include "support/input.h"
#include "support/require.h"
#include "support/world.h"
#include "upgrade/log.h"
#include "upgrade/upgrade_record.h"

namespace perilink::fuzz {
namespace {

constexpr uint32_t kTimeoutMs = 200;
// A packet is sent again up to nine times at its place.
constexpr size_t kMostSent = 10;

// A byte's lower half; its upper half is a delay in 16 ms.
enum class BootStep : uint8_t {
  kRight,    // the right answer to the start packet, the echo of any other, the end with the last
  kSpoilt,   // position, value: the echo with another byte
  kStatus,   // status, detail
  kError,    // error
  kStart,    // ready for the download
  kRaw,      // length, report
  kMany,     // count: the echo so many times
  kSilence,  //
  kFailure,  // error: the write fails
  kGone,     // the device is unplugged
  kBack,     // the device is unplugged and comes back
  kEnd,      // the end, whatever is still to come
  kCount,
};

class BootLoader {
 public:
  BootLoader(Input& input, size_t report_length, const UsbUpgradeFile& record)
      : input_(input),
        packets_(record.packets.begin(), record.packets.end()),
        length_(report_length),
        device_(
            sim::kScriptedPath,
            [this](sim::ScriptedDevice&, const sim::Bytes& it) { return OnWrite(it); },
            report_length) {}

 private:
  DWORD OnWrite(const sim::Bytes& packet) {
    const DWORD error = Take(packet);
    if (error == 0) RequireInOrder(packet);
    return error;
  }

  DWORD Take(const sim::Bytes& packet) {
    const uint8_t step = input_.Empty() ? 0 : input_.Byte();
    const uint64_t delay_ms = (step >> 4) * 16u;
    switch (static_cast<BootStep>((step & 15) % static_cast<uint8_t>(BootStep::kCount))) {
      case BootStep::kRight:
        device_.Deliver(packet, delay_ms);
        if (IsOf(packets_.front(), packet)) SayStatus(1, 1, delay_ms);
        if (IsOf(packets_.back(), packet)) SayStatus(PERILINK_UPGRADE_NOTICE_END, 0, delay_ms);
        break;
      case BootStep::kSpoilt: {
        sim::Bytes echo = packet;
        const size_t position = input_.Byte() % echo.size();
        echo[position] = input_.Byte();
        device_.Deliver(echo, delay_ms);
        break;
      }
      case BootStep::kStatus: {
        const uint8_t status = input_.Byte();
        SayStatus(status, input_.Byte(), delay_ms);
        break;
      }
      case BootStep::kError:
        Say({0, PERILINK_BOOT_ERROR, PERILINK_BOOT_ERROR_MARK, input_.Byte()}, delay_ms);
        break;
      case BootStep::kStart:
        Say({0, PERILINK_BOOT_START}, delay_ms);
        break;
      case BootStep::kRaw: {
        const auto bytes = input_.Bytes(input_.Byte() % 80);
        device_.Deliver({bytes.begin(), bytes.end()}, delay_ms);
        break;
      }
      case BootStep::kMany:
        for (size_t i = input_.Byte() % 40; i > 0; --i)
          device_.Deliver(packet, delay_ms);
        break;
      case BootStep::kSilence:
      case BootStep::kCount:
        break;
      case BootStep::kFailure:
        return 1 + input_.Byte();
      case BootStep::kGone:
        device_.Unplug();
        break;
      case BootStep::kBack:
        device_.Unplug();
        device_.Plug();
        break;
      case BootStep::kEnd:
        SayStatus(PERILINK_UPGRADE_NOTICE_END, 0, delay_ms);
        break;
    }
    return 0;
  }

  void Say(sim::Bytes report, uint64_t delay_ms) {
    report.resize(std::max(length_, report.size()));
    device_.Deliver(std::move(report), delay_ms);
  }
  void SayStatus(uint8_t status, uint8_t detail, uint64_t delay_ms) {
    Say({0, PERILINK_BOOT_STATUS, PERILINK_BOOT_STATUS_MARK, status, detail}, delay_ms);
  }

  static bool IsOf(const UpgradePacket& packet, const sim::Bytes& written) {
    return std::equal(written.begin(), written.end(), packet.data);
  }

  // Packets are those of the image, go forwards only, and each a limited number of times.
  void RequireInOrder(const sim::Bytes& written) {
    Require(written.size() == length_, "a packet is as long as the file says");
    const size_t before = place_;
    while (place_ < packets_.size() && !IsOf(packets_[place_], written))
      ++place_;
    Require(place_ < packets_.size(), "what is written is a packet that is still to come");
    sent_ = place_ == before ? sent_ + 1 : 1;
    Require(sent_ <= kMostSent, "a packet is not sent for ever");
  }

  Input& input_;
  const std::vector<UpgradePacket> packets_;
  const size_t length_;
  size_t place_ = 0;
  size_t sent_ = 0;
  sim::ScriptedDevice device_;
};

// ---- The host ----------------------------------------------------------------------------------

struct Seen {
  int percent = 0;
  bool end = false;
};
Seen g_seen;

int PERILINK_CALL OnEvent(const uint8_t* data, uint32_t length) {
  Require(length == sizeof(UpgradeEvent) && data[0] == PERILINK_UPGRADE_MESSAGE_CLASS,
          "an event is a whole record");
  Require(!g_seen.end, "nothing is told after the end");
  const uint8_t kind = data[1];
  const uint8_t code = data[2];
  switch (kind) {
    case PERILINK_UPGRADE_PROGRESS:
      Require(code <= 100 && code >= g_seen.percent, "progress goes up to 100");
      g_seen.percent = code;
      break;
    case PERILINK_UPGRADE_RESULT:
      Require(code == PERILINK_UPGRADE_RESULT_DEVICE_ERROR, "a download tells no other end");
      break;
    case PERILINK_UPGRADE_NOTICE:
      g_seen.end = code == PERILINK_UPGRADE_NOTICE_END;
      break;
    default:
      Violated("an event is progress, a result or a notice");
  }
  return 0;
}

// An image whose packets all differ.
UsbUpgradeFile MakeRecord(size_t payload, uint8_t length, bool is_end) {
  sim::UpgradeImage image;
  image.boot_input = image.boot_output = "vid_1234&pid_abcd";
  image.start = {length, false, {0xB5, PERILINK_BOOT_START, 1, 2, 3}};
  image.packet = {length, false, {0xB5, 0, 0, 0, 0, 0, 1, 0, 0}};
  image.payload.resize(payload);
  for (size_t i = 0; i < payload; ++i)
    image.payload[i] = static_cast<uint8_t>(i * 7);
  const sim::Bytes file = sim::UpgradeFileBuilder(image).Build();
  UsbUpgradeFile record;
  ParseUpgradeImage(record, file.data(), &OnEvent, kTimeoutMs, file.size());
  Require(record.valid, "the image that is downloaded is sound");
  record.is_end = is_end;
  record.total_packet_count = static_cast<int32_t>(record.packets.size());
  return record;
}

void RequireResult(const UsbUpgradeFile& record, bool done) {
  if (done) {
    Require(g_seen.end, "a download is done when the device says so");
    Require(record.result.has_value() == record.is_end, "the last download ends the upgrade");
    if (record.result)
      Require(record.result->code == PERILINK_UPGRADE_RESULT_SUCCESS, "it is done");
  } else {
    Require(!g_seen.end && record.result, "a download that was not done says why");
    Require(record.result->code == PERILINK_UPGRADE_RESULT_TIMEOUT ||
                record.result->code == PERILINK_UPGRADE_RESULT_BOOT_OPEN_FAILED,
            "a download ends in time");
  }
}

void Check(Input& input) {
  const uint8_t flags = input.Byte();
  // Room for all that tells the packets apart.
  const auto length = static_cast<uint8_t>(16 + input.Byte() % (PERILINK_PACKET_SIZE - 15));
  const size_t payload = (flags >> 1) * 3u;
  g_seen = {};
  UsbUpgradeFile record = MakeRecord(payload, length, (flags & 1) != 0);
  BootLoader boot_loader(input, length, record);
  const bool honest = input.Empty();
  const bool done = DownloadFile(record);
  RequireResult(record, done);
  if (honest) Require(done, "an honest boot loader takes the whole image");
}

}  // namespace
}  // namespace perilink::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  perilink::fuzz::EnterWorld();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace perilink::fuzz;
  const uint64_t handles = perilink::platform::OpenHandleCount();
  const uint64_t threads = perilink::platform::KnownThreadCount();
  Input input(data, size);
  Check(input);
  Require(perilink::platform::Bus().OpenConnections() == 0, "the device is closed");
  Require(perilink::platform::OpenHandleCount() == handles, "no handle is left open");
  Sleep(1);  // for the end of the thread that wrote
  Require(perilink::platform::KnownThreadCount() == threads, "no thread is left");
  perilink::ResetUpgradeLog();
  return 0;
}
