// UTF-8, one code point at a time.
#ifndef PERILINK_PLATFORM_SRC_UTF8_H_
#define PERILINK_PLATFORM_SRC_UTF8_H_

#include <cstdint>

namespace perilink::platform {

// A code point that UTF-8 can carry: no surrogate, nothing above U+10FFFF.
bool IsScalar(char32_t c);

// Takes one code point off the front of `text`, which must not be at `end`. What is no valid
// sequence gives one U+FFFD for its longest part that could begin one, as Windows and Unicode have
// it.
char32_t TakeUtf8(const uint8_t*& text, const uint8_t* end);

// Returns the number of bytes stored; U+FFFD stands for what can't be carried.
int EncodeUtf8(char32_t c, char (&bytes)[4]);

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_UTF8_H_
