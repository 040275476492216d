// What whole images and the library's own configuration record must hold.
#ifndef PERILINK_TESTS_SERVER_SIMULATION_CONFIG_MODEL_H_
#define PERILINK_TESTS_SERVER_SIMULATION_CONFIG_MODEL_H_

#include <array>
#include <cstdint>
#include <span>

#include "devices.h"
#include "perilink/protocol.h"
#include "perilink/records.h"

namespace perilink::testing {

// A full read: of which moment the bytes of its image are.
class FullRead {
 public:
  explicit FullRead(Moment begin) : since_(begin) { of_.fill(begin); }
  // An answer of its own, or the acknowledgement of a write that is laid over its image.
  void Take(Moment moment, size_t address, size_t length, bool written);

  Moment since() const { return since_; }  // none is older
  Moment of(size_t address) const { return of_[address]; }
  // The settings are read once and taken as they are. Of slots, what is read may be left out.
  static bool InSlots(size_t address) {
    return address >= PERILINK_SHORTCUT_ADDRESS && address < PERILINK_DPI_EXTENSIONS_ADDRESS;
  }

 private:
  Moment since_;
  std::array<Moment, PERILINK_FLASH_IMAGE_SIZE> of_;
};

class ConfigModel {
 public:
  // The library's own record is what the last seed left: it begins as zeros.
  ConfigModel();

  // Each byte of an image is the one that the device held when it was read, or acknowledged, last;
  // slots that have not changed since the read began are there.
  static void CheckImage(Device& device, const FullRead& read, const uint8_t* image);

  // An image has been read; `waiting` are the writes of updates that are still queued, which the
  // record keeps.
  void OnImage(const uint8_t* image, std::span<const CommandFrame> waiting);
  // The device has answered a memory read, and the answer is surely this read's.
  void OnReadAnswer(uint16_t address, const uint8_t* data);
  // The host's record has become the library's own.
  void OnUpdate(const ProtocolData& record) { record_ = record; }
  // The library's own record is the model's, in all that a device would hold of it.
  void Check();

  // What is queued for an update makes the device hold `record` where it held `previous`.
  static void CheckUpdate(const ProtocolData& previous, const ProtocolData& record,
                          std::span<const CommandFrame> writes);
  const ProtocolData& record() const { return record_; }

 private:
  ProtocolData record_{};
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SERVER_SIMULATION_CONFIG_MODEL_H_
