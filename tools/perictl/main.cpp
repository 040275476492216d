// perictl: finds, inspects and shows a device through perilink's public headers, as any host may.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "commands/commands.h"
#include "context.h"
#include "exit_codes.h"

namespace perictl {
namespace {

// The one line that a failure gets; with --json also as the document's member "error", behind
// whatever was found out before.
int Fail(Context& context, ExitCode code, const std::string& message) {
  std::cout.flush();
  std::cerr << "perictl: " << message << '\n';
  if (context.report.json()) {
    context.report.Section("", "");
    context.report.Fact(
        "error", "", "",
        {{"code", static_cast<int>(code)}, {"name", ExitCodeName(code)}, {"message", message}});
    context.report.Finish();
  }
  return static_cast<int>(code);
}

// What became of a virtual device is kept whether the command succeeds or fails.
void RunCommand(Context& context) {
  try {
    context.run();
  } catch (const Failure&) {
    FinishDevices(context);
    throw;
  }
  FinishDevices(context);
}

int Run(Context& context) {
  try {
    PrepareDevices(context);
    RunCommand(context);
    context.report.Finish();
  } catch (const Failure& failure) {
    return Fail(context, failure.code(), failure.what());
  } catch (const std::exception& error) {
    return Fail(context, ExitCode::kInternal, error.what());
  }
  if (!std::cout) {
    std::cerr << "perictl: the output can't be written\n";
    return static_cast<int>(ExitCode::kInternal);
  }
  return static_cast<int>(context.exit_code);
}

int Main(int argc, char** argv) {
  Context context(std::cout);
  CLI::App app("Talks to wireless gaming mice and keyboards and their USB receivers.", "perictl");
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(ExitCodeHelp());
  AddCommonOptions(app, context);
  for (const auto add : kAddCommands)
    add(app, context);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& success) {
    return app.exit(success);
  } catch (const CLI::ParseError& error) {
    // The parser misses a command before it tells of a word that is none.
    const std::vector<std::string> unknown = app.remaining();
    const std::string message =
        unknown.empty() ? error.what() : "there is no command or option '" + unknown.front() + "'";
    return Fail(context, ExitCode::kUsage, message + " ('perictl --help' helps)");
  }
  return Run(context);
}

}  // namespace
}  // namespace perictl

int main(int argc, char** argv) {
  return perictl::Main(argc, argv);
}
