// The normal firmware of a virtual device and of its receiver: answers every command.
#ifndef PERILINK_SIM_FIRMWARE_H_
#define PERILINK_SIM_FIRMWARE_H_

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "sim/battery.h"
#include "sim/flash_image.h"
#include "sim/report.h"

namespace perilink::sim {

struct FirmwareOptions {
  bool keyboard = false;  // replies carry the keyboard's bit in their length byte
  std::string vendor_text = "Virtual";
  std::string product_text = "Virtual mouse";
  uint16_t version = 0x0102;
  uint16_t slave_version = 0x0203;
  std::array<uint8_t, 3> address = {0x1A, 0x2B, 0x3C};  // of the device, as its receiver knows it
  std::array<uint8_t, 3> info = {0x12, 0x34, 0x01};     // data bytes 4 to 6 of command 0x01's reply
  uint8_t cid = 0x12;
  uint8_t mid = 0x34;
  bool cid_mid_flag = false;  // bit 7 of the length byte of the replies to 0xF0 and 0xF1
  std::array<uint8_t, 10> serial = {'V', 'M', '0', '0', '0', '0', '0', '0', '0', '1'};
  uint8_t rssi = 0x30;
  uint8_t dongle_status = 0;            // status byte of the replies to 0x14
  uint64_t latency_micros = 1'000;      // from a request to its reply
  uint64_t clear_micros = 1'200'000;    // the same for clearing the settings (0x09)
  uint64_t pairing_micros = 3'000'000;  // how long pairing takes
};

// What the host has set; kept until the device loses power or the host sets it anew.
struct FirmwareState {
  uint8_t driver_status = 0;
  uint8_t config = 0;
  uint8_t long_range = 0;
  bool mtk_mode = false;
  std::array<uint8_t, 10> dongle_rgb = {0xFF, 0x40, 0x10, 0, 0, 0, 0, 0, 0, 0};
  std::array<uint8_t, 7> bar_mode = {1, 2, 0x10, 0x20, 0x30, 5, 1};
  std::array<uint8_t, 3> indicator = {1, 0x80, 3};
  std::array<uint8_t, 10> dongle_id = {};
  std::array<uint8_t, 4> vid_pid = {};
  std::array<uint8_t, 3> pair_request = {};
  std::string descriptor;
};

class Firmware {
 public:
  struct Answer {
    Frame frame;
    uint64_t delay_micros;
  };
  // A host developer's own answer to a command: the reply, which is sealed for it, or none.
  using Handler = std::function<std::optional<Frame>(const Frame& request)>;

  Firmware(const FirmwareOptions& options, const FlashImage& flash, Battery& battery);

  // The answer to one request that came at a time of the device's clock; none for a wrong checksum
  // or report id, and none to a device command while the device sleeps. `flash_bytes` limits what a
  // flash write stores (power loss).
  std::optional<Answer> Handle(const Frame& request, uint64_t now_micros,
                               std::optional<size_t> flash_bytes = {});

  // Commands that the receiver answers by itself, whether the device is awake or not.
  static bool ReceiverAnswers(uint8_t command);

  void SetHandler(uint8_t command, Handler handler) { handlers_[command] = std::move(handler); }

  FirmwareOptions& options() { return options_; }
  const FirmwareOptions& options() const { return options_; }
  FirmwareState& state() { return state_; }
  FlashImage& flash() { return flash_; }
  bool asleep() const { return asleep_; }
  void set_asleep(bool asleep) { asleep_ = asleep; }
  // What a power cycle does: the state is lost, flash and factory data stay.
  void PowerOn() {
    state_ = {};
    pairing_since_micros_.reset();
  }

 private:
  bool AnswerReceiver(const Frame& request, uint64_t now_micros, Frame& reply);
  bool AnswerQuery(const Frame& request, Frame& reply);
  bool AnswerMemory(const Frame& request, Frame& reply, std::optional<size_t> flash_bytes);
  void AnswerSetting(const Frame& request, Frame& reply);
  void AnswerDescriptor(const Frame& request, Frame& reply);
  void AnswerPairStatus(uint64_t now_micros, Frame& reply);
  void AnswerCidMid(Frame& reply);
  void Fill(Frame& reply, std::span<const uint8_t> data);
  void Fill(Frame& reply, std::initializer_list<uint8_t> data);

  FirmwareOptions options_;
  FirmwareState state_;
  FlashImage flash_;
  FlashImage default_flash_;
  Battery& battery_;
  bool asleep_ = false;
  std::optional<uint64_t> pairing_since_micros_;
  std::map<uint8_t, Handler> handlers_;
};

}  // namespace perilink::sim

#endif  // PERILINK_SIM_FIRMWARE_H_
