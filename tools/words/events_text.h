// Key events as people write them: words with a space or a comma between them. A word is
//
//   KIND:KEY+DELAY          press:a+10
//   KIND:CODE:KEYS+DELAY    press:1:0400+10
//   KEY+KEY...              ctrl+c: the keys pressed in this order, and released in the other
//
// KIND is press, release or other (KeyEvent's kinds 0, 1 and 2), KEY a key's name, CODE 0 to 15,
// KEYS the two key bytes as four hexadecimal digits, DELAY 0 to 65535. "+DELAY" is left out where
// it is 0. Keys have names where a description of the device says which code means what.
#ifndef PERILINK_TOOLS_WORDS_EVENTS_TEXT_H_
#define PERILINK_TOOLS_WORDS_EVENTS_TEXT_H_

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "perilink/records.h"
#include "words/key_names.h"

namespace perilink::tools {

// Events that are the presses and releases of "ctrl+c" and have no delays are written so.
std::string EventsToText(std::span<const KeyEvent> events, const KeyNames& names = {});

// Throws ConfigError, which names the event and what is wrong with it.
std::vector<KeyEvent> EventsFromText(std::string_view text, const KeyNames& names = {});

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_WORDS_EVENTS_TEXT_H_
