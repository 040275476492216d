#include "cli/command_line.h"

#include <charconv>

#include "common/suggestion.h"
#include "terminal/text.h"

namespace perictl {
namespace {

using perilink::tools::DidYouMean;

std::vector<const CLI::Option*> Operands(const CLI::App& command) {
  return command.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

// Of the command and of those above it, whose options hold for it too.
std::vector<std::string> OptionNames(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* app = &command; app != nullptr; app = app->get_parent()) {
    for (const CLI::Option* option : app->get_options()) {
      for (const std::string& name : option->get_lnames())
        names.push_back("--" + name);
    }
  }
  return names;
}

std::vector<std::string> CommandNames(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* sub : CommandsOf(command))
    names.push_back(sub->get_name());
  return names;
}

// The option that a message of the parser begins with, or null.
const CLI::Option* OptionIn(const CLI::App& command, const std::string& message) {
  for (const CLI::App* app = &command; app != nullptr; app = app->get_parent()) {
    for (const CLI::Option* option : app->get_options()) {
      const std::string name = option->get_name();
      if (message.compare(0, name.size() + 1, name + ":") == 0) return option;
    }
  }
  return nullptr;
}

}  // namespace

CommandLine::CommandLine(const CommandText& text) : app_(text.summary, text.name) {
  texts_[&app_] = text;
  app_.require_subcommand(1);
  app_.fallthrough();
  app_.allow_windows_style_options(false);  // "/name" is a file everywhere
  app_.set_help_flag("-h,--help", "print this help");
}

CLI::App& CommandLine::Add(CLI::App& parent, const CommandText& text) {
  CLI::App* const command = parent.add_subcommand(text.name, text.summary);
  texts_[command] = text;
  return *command;
}

CLI::App& CommandLine::AddGroup(CLI::App& parent, const CommandText& text) {
  CLI::App& group = Add(parent, text);
  group.require_subcommand(1);
  return group;
}

const CLI::App& CommandLine::Chosen() const {
  const CLI::App* command = &app_;
  while (!command->get_subcommands().empty())
    command = command->get_subcommands().front();
  return *command;
}

std::string CommandLine::Explain(const CLI::ParseError& error) const {
  const CLI::App& command = Chosen();
  const std::vector<std::string> unknown = app_.remaining(true);
  std::string message = error.what();
  // The parser misses a command before it tells of a word that is none.
  if (!unknown.empty()) {
    message = ExplainWord(command, unknown.front());
  } else if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
    message = WhatIsMissing(command);
  } else if (const CLI::Option* const option = OptionIn(command, message);
             option != nullptr && dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    message = option->get_name() + " needs a value: " + option->get_type_name();
  }
  for (std::string::size_type at; (at = message.find('\n')) != std::string::npos;)
    message[at] = ' ';
  const std::vector<Example>& examples = TextOf(command).examples;
  const bool suggests = message.back() == '?';
  if (!suggests && !examples.empty()) message += "; for example: " + examples.front().command;
  return message + " ('" + FullName(command) + " --help' helps)";
}

std::string CommandLine::ExplainWord(const CLI::App& command, const std::string& word) const {
  if (word.size() > 1 && word[0] == '-') {
    const std::string name = word.substr(0, word.find('='));
    return "there is no option '" + name + "'" + DidYouMean(name, OptionNames(command));
  }
  const std::vector<std::string> commands = CommandNames(command);
  if (!commands.empty()) {
    const std::string nearest = DidYouMean(word, commands);
    return "there is no command '" + word + "'" +
           (nearest.empty() ? ", but " + Joined(commands, ", ") : nearest);
  }
  return "'" + word + "' is too much: " + FullName(command) + " takes " +
         (Operands(command).empty() ? "only options" : "no more than its operands");
}

std::string CommandLine::WhatIsMissing(const CLI::App& command) const {
  const std::vector<std::string> commands = CommandNames(command);
  if (!commands.empty()) {
    return "a command is missing after '" + FullName(command) + "': " + Joined(commands, ", ");
  }
  for (const CLI::Option* operand : Operands(command)) {
    if (operand->get_required() && operand->count() == 0) {
      return operand->get_name(true) + " is missing after '" + FullName(command) + "'";
    }
  }
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_required() && option->count() == 0) return option->get_name() + " is missing";
  }
  return "something is missing";
}

std::string FullName(const CLI::App& command) {
  if (command.get_parent() == nullptr) return command.get_name();
  return FullName(*command.get_parent()) + " " + command.get_name();
}

std::vector<const CLI::App*> CommandsOf(const CLI::App& command) {
  return command.get_subcommands(
      [](const CLI::App* sub) { return !sub->get_name().empty() && !sub->get_group().empty(); });
}

// ---- Checks ------------------------------------------------------------------------------------

namespace {

// The parser would print a check's name behind the option's; the type's name says it better.
CLI::Validator Check(std::function<std::string(std::string&)> check) {
  return CLI::Validator(std::move(check), "");
}

}  // namespace

CLI::Validator OneOf(std::vector<std::string> words) {
  return Check([words = std::move(words)](std::string& text) -> std::string {
    if (std::find(words.begin(), words.end(), text) != words.end()) return "";
    return "'" + text + "' is not one of " + Joined(words, ", ") + DidYouMean(text, words);
  });
}

CLI::Validator WholeNumber(uint64_t least, uint64_t most, const std::string& example) {
  return Check([=](std::string& text) -> std::string {
    uint64_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && stop == text.data() + text.size() && !text.empty();
    if (whole && number >= least && number <= most) return "";
    return "'" + text + "' is not a whole number from " + std::to_string(least) +
           (most == UINT64_MAX ? "" : " to " + std::to_string(most)) + ", as in " + example;
  });
}

CLI::Validator Seconds() {
  return Check([](std::string& text) -> std::string {
    constexpr double kMost = 1e9;
    double seconds = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    const bool number = error == std::errc() && stop == text.data() + text.size();
    if (number && seconds >= 0.001 && seconds <= kMost) return "";
    return "'" + text + "' is not a number of seconds above 0, as in --for 2.5";
  });
}

CLI::Validator HexId() {
  return Check([](std::string& text) -> std::string {
    const bool good =
        text.size() == 4 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    return good ? "" : "'" + text + "' is not four hexadecimal digits, as in --vid 1a2b";
  });
}

}  // namespace perictl
