// Configurations as devices hold them: which fields of an image fail their check, and files.
#include <algorithm>
#include <numeric>

#include "common/config.h"
#include "common/config_members.h"
#include "common/config_parts.h"
#include "perilink/config_layout.h"
#include "perilink/protocol_data.h"

namespace perilink::tools {
namespace {

bool CheckIsRight(const uint8_t* value, size_t size) {
  return value[size] == static_cast<uint8_t>(0x55 - std::accumulate(value, value + size, 0));
}

// Of a slot's event list: erased and 0 stand for none, whatever follows.
bool EventsAreSound(const uint8_t* checked, uint8_t count, size_t least, size_t most,
                    size_t checked_size) {
  if (count == 0 || count == kErased) return true;
  return count >= least && count <= most && CheckIsRight(checked, checked_size);
}

void AddFailedShortcuts(const uint8_t* image, std::vector<std::string>& failed) {
  constexpr size_t kMost = std::size(ShortcutKey{}.events);
  for (size_t i = 0; i < std::size(ProtocolData{}.shortcuts); ++i) {
    const uint8_t* slot = image + PERILINK_SHORTCUT_ADDRESS + i * PERILINK_SHORTCUT_SLOT_SIZE;
    const uint8_t count = slot[0];
    if (!EventsAreSound(slot, count, PERILINK_SHORTCUT_MIN_EVENTS, kMost, 1u + 3u * count)) {
      failed.push_back(Indexed("shortcuts", i));
    }
  }
}

void AddFailedMacros(const uint8_t* image, std::vector<std::string>& failed) {
  constexpr size_t kMost = std::size(MacroKey{}.events);
  for (size_t i = 0; i < std::size(ProtocolData{}.macros); ++i) {
    const uint8_t* slot = image + PERILINK_MACRO_ADDRESS + i * PERILINK_MACRO_SLOT_SIZE;
    const uint8_t* checked = slot + PERILINK_MACRO_COUNT_OFFSET;
    const uint8_t count = *checked;
    const std::string macro = Indexed("macros", i);
    if (slot[0] > sizeof(MacroKey::name) && slot[0] != kErased) {
      failed.push_back(Joined(macro, "name"));
    }
    if (!EventsAreSound(checked, count, PERILINK_MACRO_MIN_EVENTS, kMost, 1u + 5u * count)) {
      failed.push_back(Joined(macro, "events"));
    }
  }
}

// An image may be as long as a document and may begin with its brace, but not without a byte that
// no text holds.
bool LooksLikeJson(std::string_view content) {
  constexpr std::string_view kSpace = " \t\r\n";
  const size_t first = content.find_first_not_of(kSpace);
  if (first == std::string_view::npos || content[first] != '{') return false;
  return std::none_of(content.begin(), content.end(), [&](char c) {
    const auto byte = static_cast<uint8_t>(c);
    return byte >= 0xF8 || (byte < 0x20 && kSpace.find(c) == std::string_view::npos);
  });
}

}  // namespace

std::vector<std::string> FailedChecks(std::span<const uint8_t> image) {
  if (image.size() != PERILINK_FLASH_IMAGE_SIZE) {
    throw ConfigError("not an image: " + std::to_string(image.size()) + " bytes, " +
                      std::to_string(PERILINK_FLASH_IMAGE_SIZE) + " are wanted");
  }
  std::vector<std::string> failed;
  for (const ConfigPart& part : ConfigParts()) {
    if (part.kind == PartKind::kField && !CheckIsRight(&image[part.address], part.size)) {
      failed.push_back(part.name);
    }
  }
  AddFailedShortcuts(image.data(), failed);
  AddFailedMacros(image.data(), failed);
  return failed;
}

LoadedConfig LoadConfig(std::string_view content) {
  LoadedConfig loaded;
  if (LooksLikeJson(content)) {
    loaded.record = ConfigFromText(content);
  } else if (content.size() == PERILINK_FLASH_IMAGE_SIZE) {
    const std::span image(reinterpret_cast<const uint8_t*>(content.data()), content.size());
    loaded.from_image = true;
    loaded.failed_checks = FailedChecks(image);
    ProtocolDataParser(image.data(), &loaded.record);
  } else {
    throw ConfigError("neither an image of " + std::to_string(PERILINK_FLASH_IMAGE_SIZE) +
                      " bytes nor a configuration in JSON");
  }
  return loaded;
}

}  // namespace perilink::tools
