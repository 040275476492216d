// perictl's command line: the commands with all that is said about them, from which help, manual
// pages, completions and error messages come.
#ifndef PERILINK_TOOLS_PERICTL_CLI_COMMAND_LINE_H_
#define PERILINK_TOOLS_PERICTL_CLI_COMMAND_LINE_H_

#include <CLI/CLI.hpp>
#include <map>
#include <string>
#include <vector>

namespace perictl {

struct Example {
  std::string command;  // "perictl set dpi=800"
  std::string does;     // what it does, in a few words
};

struct CommandText {
  std::string name;                  // "set"
  std::string summary;               // one line
  std::vector<std::string> details;  // paragraphs; a line that begins with a space stays as it is
  std::vector<Example> examples;
};

class CommandLine {
 public:
  explicit CommandLine(const CommandText& text);

  CLI::App& root() { return app_; }
  const CLI::App& root() const { return app_; }

  // A command, or a group of commands, which needs one of them.
  CLI::App& Add(CLI::App& parent, const CommandText& text);
  CLI::App& AddGroup(CLI::App& parent, const CommandText& text);
  const CommandText& TextOf(const CLI::App& command) const { return texts_.at(&command); }

  // The command that was given, as far as it is known.
  const CLI::App& Chosen() const;
  // What is wrong with the command line, and an example of what would be right: one line.
  std::string Explain(const CLI::ParseError& error) const;

 private:
  std::string ExplainWord(const CLI::App& command, const std::string& word) const;
  std::string WhatIsMissing(const CLI::App& command) const;

  CLI::App app_;
  std::map<const CLI::App*, CommandText> texts_;
};

// "perictl config set"
std::string FullName(const CLI::App& command);
// Those with a name, in the order in which they were added.
std::vector<const CLI::App*> CommandsOf(const CLI::App& command);

// Checks for options and operands, with the messages that they lead to. `example` is what would be
// right.
CLI::Validator OneOf(std::vector<std::string> words);
CLI::Validator WholeNumber(uint64_t least, uint64_t most, const std::string& example);
CLI::Validator Seconds();
CLI::Validator HexId();

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_CLI_COMMAND_LINE_H_
