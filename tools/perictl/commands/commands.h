// The commands. Each has a file of its own, which adds it to the command line: its options, its
// help, and what Context::run does when it is chosen.
#ifndef PERILINK_TOOLS_PERICTL_COMMANDS_COMMANDS_H_
#define PERILINK_TOOLS_PERICTL_COMMANDS_COMMANDS_H_

#include <CLI/CLI.hpp>

#include "context.h"

namespace perictl {

void AddListCommand(CLI::App& app, Context& context);
void AddInfoCommand(CLI::App& app, Context& context);
void AddBatteryCommand(CLI::App& app, Context& context);
void AddEventsCommand(CLI::App& app, Context& context);
void AddConfigCommand(CLI::App& app, Context& context);
void AddMacroCommand(CLI::App& app, Context& context);
void AddUpgradeCommand(CLI::App& app, Context& context);
void AddDemoCommand(CLI::App& app, Context& context);
void AddUdevRuleCommand(CLI::App& app, Context& context);  // where the system has such rules

inline constexpr void (*kAddCommands[])(CLI::App&, Context&) = {
    AddListCommand,  AddInfoCommand,    AddBatteryCommand, AddEventsCommand,   AddConfigCommand,
    AddMacroCommand, AddUpgradeCommand, AddDemoCommand,    AddUdevRuleCommand,
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_COMMANDS_COMMANDS_H_
