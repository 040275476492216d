#include "protocol/parser.h"

#include "perilink/protocol_data.h"
#include "protocol/fields.h"
#include "protocol/key_events.h"
#include "protocol/stored.h"

namespace perilink {

void ParseSettings(const uint8_t* image, ProtocolData& record) {
  AcceptGroup(kConfigGroups[kSettingsGroup], image, RecordBytes(record));
}

void ParseImage(const uint8_t* image, ProtocolData& record) {
  for (const ConfigGroup& group : kConfigGroups)
    AcceptGroup(group, image, RecordBytes(record));
  for (size_t i = 0; i < std::size(record.shortcuts); ++i) {
    const uint8_t* slot = image + Perilink_ShortcutSlotAddress(i);
    DecodeShortcut(ShortcutSlotView(slot, PERILINK_SHORTCUT_SLOT_SIZE), record.shortcuts[i]);
  }
  for (size_t i = 0; i < std::size(record.macros); ++i) {
    const uint8_t* slot = image + Perilink_MacroSlotAddress(i);
    DecodeMacro(MacroSlotView(slot, PERILINK_MACRO_SLOT_SIZE), record.macros[i]);
  }
}

}  // namespace perilink

extern "C" {

void MouseConfigParser(const uint8_t* image, ProtocolData* record) {
  perilink::ParseSettings(image, *record);
}

void ProtocolDataParser(const uint8_t* image, ProtocolData* record) {
  perilink::StoredProtocolData::Instance().MarkParsed();
  perilink::ParseImage(image, *record);
}

}  // extern "C"
