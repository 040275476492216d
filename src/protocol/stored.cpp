#include "protocol/stored.h"

#include <cstddef>
#include <cstring>
#include <new>

#include "perilink/config_layout.h"
#include "perilink/protocol_data.h"
#include "platform/guard.h"
#include "protocol/fields.h"
#include "protocol/parser.h"

namespace perilink {
namespace {

// Stores `count` fields of the group from field `first` on, which the answer at `address` carries
// with their check bytes. A field whose check fails leaves the record as it is, without the group's
// fallback, and the rules for whole images don't apply.
void StoreFields(const ConfigGroup& group, size_t first, size_t count, uint16_t address,
                 std::span<const uint8_t, 10> data, ProtocolData& record) {
  uint8_t* target = RecordBytes(record) + group.record_offset;
  for (size_t i = first; i < first + count; ++i) {
    const ConfigField& field = group.fields[i];
    const uint8_t* value = data.data() + (field.flash_address - address);
    if (Perilink_CheckHolds(value, field.width)) {
      std::memcpy(target + field.record_offset, value, field.width);
    }
  }
}

}  // namespace

StoredProtocolData& StoredProtocolData::Instance() {
  // Never destroyed: a server thread that still runs while the process exits may go on using it.
  alignas(StoredProtocolData) static std::byte storage[sizeof(StoredProtocolData)];
  static StoredProtocolData* const instance = new (storage) StoredProtocolData;
  return *instance;
}

void StoredProtocolData::Replace(const ProtocolData& record) {
  std::lock_guard lock(mutex_);
  record_ = record;
}

void StoredProtocolData::Parse(const uint8_t* image) {
  std::lock_guard lock(mutex_);
  ParseImage(image, record_);
  MarkParsed();
}

void StoredProtocolData::StoreReply(uint16_t address, std::span<const uint8_t, 10> data) {
  struct Answer {
    uint16_t address;
    GroupIndex group;
    uint8_t first_field;
    uint8_t field_count;
  };
  static constexpr Answer kAnswers[] = {
      {PERILINK_REPORT_RATE_ADDRESS, kSettingsGroup, 0, 1},
      {PERILINK_CURRENT_DPI_ADDRESS, kSettingsGroup, 2, 1},
      {PERILINK_DPI_LED_ADDRESS, kDpiLedGroup, 0, kDpiLedFields.size()},
      {PERILINK_LED_BAR_ADDRESS, kLedBarGroup, 0, kLedBarFields.size()},
  };
  for (const Answer& answer : kAnswers) {
    if (answer.address != address) continue;
    std::lock_guard lock(mutex_);
    StoreFields(kConfigGroups[answer.group], answer.first_field, answer.field_count, address, data,
                record_);
  }
}

}  // namespace perilink

extern "C" {

void SetDllProtocolData(const ProtocolData* record) {
  perilink::Guarded([&] { perilink::StoredProtocolData::Instance().Replace(*record); });
}

}  // extern "C"
