// The commands. Each has a file of its own, which adds it to the command line: its text, its
// options, and what Context::run does when it is chosen.
#ifndef PERILINK_TOOLS_PERICTL_COMMANDS_COMMANDS_H_
#define PERILINK_TOOLS_PERICTL_COMMANDS_COMMANDS_H_

#include "cli/command_line.h"
#include "context.h"

namespace perictl {

void AddListCommand(CommandLine& line, Context& context);
void AddInfoCommand(CommandLine& line, Context& context);
void AddBatteryCommand(CommandLine& line, Context& context);
void AddEventsCommand(CommandLine& line, Context& context);
void AddGetAndSetCommands(CommandLine& line, Context& context);
void AddConfigCommands(CommandLine& line, Context& context);
void AddMacroCommands(CommandLine& line, Context& context);
void AddModelCommands(CommandLine& line, Context& context);
void AddUpgradeCommands(CommandLine& line, Context& context);
void AddDemoCommand(CommandLine& line, Context& context);
void AddUdevRuleCommand(CommandLine& line, Context& context);  // where the system has such rules
void AddHelpCommand(CommandLine& line, Context& context);
void AddGenerateCommand(CommandLine& line, Context& context);

inline constexpr void (*kAddCommands[])(CommandLine&, Context&) = {
    AddListCommand,       AddInfoCommand,     AddBatteryCommand, AddEventsCommand,
    AddGetAndSetCommands, AddConfigCommands,  AddMacroCommands,  AddModelCommands,
    AddUpgradeCommands,   AddUdevRuleCommand, AddDemoCommand,    AddHelpCommand,
    AddGenerateCommand,
};

// Makes `run` what is done when the command is chosen.
template <typename Run>
void SetRun(CLI::App& command, Context& context, Run run) {
  command.callback([&context, run] { context.run = run; });
}

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_COMMANDS_COMMANDS_H_
