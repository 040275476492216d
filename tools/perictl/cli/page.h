// What there is to say about one command, taken from the command line's own definitions: what its
// help prints, and what the manual pages and completions are made of.
#ifndef PERILINK_TOOLS_PERICTL_CLI_PAGE_H_
#define PERILINK_TOOLS_PERICTL_CLI_PAGE_H_

#include <string>
#include <vector>

#include "cli/command_line.h"

namespace perictl {

struct OptionText {
  std::vector<std::string> names;  // "-d", "--device"; of an operand its one name
  std::string value;               // "FILE", "json|image", empty for a flag
  bool optional_value = false;     // given as --name=VALUE or not at all
  bool repeats = false;            // of an operand: several may follow one another
  bool required = false;
  std::string description;

  // "-d, --device NUMBER|NAME"
  std::string Heading() const;
  // "json", "image", if the value is one of some words; empty otherwise
  std::vector<std::string> Choices() const;
  bool TakesFile() const { return value.rfind("FILE", 0) == 0; }
};

struct OptionGroup {
  std::string title;
  std::vector<OptionText> options;
};

struct CommandPage {
  std::string name;  // "perictl config save"
  const CommandText* text = nullptr;
  std::vector<OptionText> operands;
  std::vector<OptionGroup> groups;  // its own options, then those of all commands
  std::vector<CommandPage> commands;
  bool is_root = false;

  // "perictl config save [OPTIONS] FILE"
  std::string Usage() const;
};

CommandPage PageOf(const CommandLine& line, const CLI::App& command);

// What --help prints, in lines of this width.
std::string HelpText(const CommandPage& page, size_t width);
// The manual page in the man macros, of section 1. `date` is as in 2026-11-23.
std::string ManPage(const CommandPage& page, const std::string& date);
// Its file's name without ".1": "perictl-config-save"
std::string ManName(const CommandPage& page);

std::string BashCompletion(const CommandPage& root);
std::string ZshCompletion(const CommandPage& root);
std::string FishCompletion(const CommandPage& root);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_CLI_PAGE_H_
