// Configurations as devices hold them, in files.
#include <algorithm>

#include "common/config.h"
#include "common/config_parts.h"

namespace perilink::tools {
namespace {

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

ConfigFile LoadConfig(std::string_view content) {
  if (LooksLikeJson(content)) return ConfigFromJson(ParseJson<InputJson>(content));
  if (content.size() != PERILINK_FLASH_IMAGE_SIZE) {
    throw ConfigError("neither an image of " + std::to_string(PERILINK_FLASH_IMAGE_SIZE) +
                      " bytes nor a configuration in JSON");
  }
  const DeviceConfig image =
      DeviceConfigFromImage({reinterpret_cast<const uint8_t*>(content.data()), content.size()});
  if (!LooksLikeConfig(image)) {
    throw ConfigError("no configuration: most of its check bytes are wrong");
  }
  ConfigFile file;
  file.from_image = true;
  file.record = image.record;
  file.known = SoundBytes(image);
  file.failed_checks = UnsoundParts(image);
  return file;
}

}  // namespace perilink::tools
