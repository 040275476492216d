// What the output goes to: how wide it is, whether it shows colours, whether a person is there.
#ifndef PERILINK_TOOLS_PERICTL_TERMINAL_TERMINAL_H_
#define PERILINK_TOOLS_PERICTL_TERMINAL_TERMINAL_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace perictl {

struct Terminal {
  bool is_terminal = false;
  bool colors = false;  // a terminal, unless NO_COLOR is set or TERM is dumb
  size_t width = 80;    // columns; of the terminal, or else as COLUMNS says
};
const Terminal& OutputTerminal();
const Terminal& ErrorTerminal();

enum class Style { kHeading, kFaint, kOld, kNew, kError, kWarning };
// The text with the style's escape sequences, where the terminal shows colours.
std::string Styled(const Terminal& terminal, Style style, std::string_view text);

// Any text as one that can't steer a terminal: control characters and what is no UTF-8 become \x1b.
// What is printable stays as it is.
std::string Printable(std::string_view text);

// A line about what is going on, on standard error: "perictl: ...".
void Tell(const std::string& message);

// Whether a person can be asked: standard input and standard error are a terminal.
bool CanAsk();
// Asks on standard error, and waits for the answer. True for "y" and "yes".
bool Confirm(const std::string& question);

// The words in lines of at most `width` columns, all but the first indented. A word that is longer
// has a line of its own.
std::string Wrapped(std::string_view text, size_t width, size_t indent);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_TERMINAL_TERMINAL_H_
