// Key events as people write them: events with a space or a comma between them, each
//
//   KIND:CODE:KEYS+DELAY     press:1:0400+10
//
// KIND is press, release or other (KeyEvent's kinds 0, 1 and 2), CODE 0 to 15, KEYS the two key
// bytes as four hexadecimal digits, DELAY 0 to 65535. "+DELAY" is left out where it is 0.
#ifndef PERILINK_TOOLS_COMMON_EVENTS_TEXT_H_
#define PERILINK_TOOLS_COMMON_EVENTS_TEXT_H_

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "perilink/records.h"

namespace perilink::tools {

std::string EventsToText(std::span<const KeyEvent> events);

// Throws ConfigError, which names the event, for anything else.
std::vector<KeyEvent> EventsFromText(std::string_view text);

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_COMMON_EVENTS_TEXT_H_
