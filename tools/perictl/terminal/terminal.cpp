#include "terminal/terminal.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "common/escaped_text.h"
#include "system.h"

namespace perictl {
namespace {

constexpr size_t kUsualWidth = 80;
constexpr size_t kLeastWidth = 20;
constexpr size_t kMostWidth = 1000;

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

size_t WidthOf(std::FILE* file, bool is_terminal) {
  size_t width = is_terminal ? TerminalColumns(file) : 0;
  if (width == 0) width = std::strtoul(Variable("COLUMNS").c_str(), nullptr, 10);
  return width == 0 ? kUsualWidth : std::clamp(width, kLeastWidth, kMostWidth);
}

Terminal Look(std::FILE* file) {
  Terminal terminal;
  terminal.is_terminal = IsTerminal(file);
  terminal.colors = terminal.is_terminal && Variable("NO_COLOR").empty() &&
                    Variable("TERM") != "dumb" && TakesEscapes(file);
  terminal.width = WidthOf(file, terminal.is_terminal);
  return terminal;
}

const char* Sequence(Style style) {
  switch (style) {
    case Style::kHeading:
      return "\033[1m";
    case Style::kFaint:
      return "\033[2m";
    case Style::kOld:
    case Style::kError:
      return "\033[31m";
    case Style::kNew:
      return "\033[32m";
    case Style::kWarning:
      return "\033[33m";
  }
  return "";
}

}  // namespace

const Terminal& OutputTerminal() {
  static const Terminal terminal = Look(stdout);
  return terminal;
}

const Terminal& ErrorTerminal() {
  static const Terminal terminal = Look(stderr);
  return terminal;
}

std::string Styled(const Terminal& terminal, Style style, std::string_view text) {
  if (!terminal.colors || text.empty()) return std::string(text);
  return Sequence(style) + std::string(text) + "\033[0m";
}

std::string Printable(std::string_view text) {
  // The escapes of backslashes are undone: here they stand for themselves.
  std::string printable;
  while (!text.empty()) {
    const size_t plain = text.find('\\');
    printable += perilink::tools::EscapeText(text.substr(0, plain));
    if (plain == std::string_view::npos) break;
    printable += '\\';
    text.remove_prefix(plain + 1);
  }
  return printable;
}

void Tell(const std::string& message) {
  std::cout.flush();
  std::cerr << "perictl: " << Printable(message) << std::endl;
}

bool CanAsk() {
  return IsTerminal(stdin) && ErrorTerminal().is_terminal;
}

bool Confirm(const std::string& question) {
  std::cout.flush();
  std::cerr << Printable(question) << " [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

std::string Wrapped(std::string_view text, size_t width, size_t indent) {
  std::string lines;
  size_t column = indent;
  while (!text.empty()) {
    const size_t end = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, end);
    const bool first = lines.empty();
    if (!first && column + 1 + word.size() > width) {
      lines += "\n" + std::string(indent, ' ');
      column = indent;
    } else if (!first) {
      lines += ' ';
      ++column;
    }
    lines += word;
    column += word.size();
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

}  // namespace perictl
