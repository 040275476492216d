// perictl: finds, inspects and shows a device through perilink's public headers, as any host may.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "cli/page.h"
#include "commands/commands.h"
#include "context.h"
#include "system.h"

namespace perictl {
namespace {

// The one line that a failure gets; with --json also as the document's member "error", behind
// whatever was found out before.
int Fail(Context& context, ExitCode code, const std::string& message) {
  std::cout.flush();
  std::cerr << Styled(ErrorTerminal(), Style::kError, "perictl:") << ' ' << Printable(message)
            << '\n';
  if (context.report.json()) {
    context.report.Section("", "");
    context.report.Data(
        "error",
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

// The code, unless the output is lost.
int End(Context& context) {
  std::cout.flush();
  if (std::cout) return static_cast<int>(context.exit_code);
  Tell("the output can't be written");
  return static_cast<int>(ExitCode::kInternal);
}

int Run(Context& context) {
  try {
    PrepareDevices(context);
    RunCommand(context);
    context.report.Finish();
  } catch (const Failure& failure) {
    return Fail(context, failure.code(), failure.what());
  } catch (const perilink::tools::FileError& error) {
    return Fail(context, ExitCode::kFile, error.what());
  } catch (const std::exception& error) {
    return Fail(context, ExitCode::kInternal, error.what());
  }
  return End(context);
}

int Main(int argc, char** argv) {
  Context context(std::cout);
  CommandLine line({"perictl",
                    "Talks to wireless gaming mice and keyboards and their USB receivers",
                    {},
                    {{"perictl list", "the devices that are plugged in"},
                     {"perictl set dpi=800", "change a setting"}}});
  AddCommonOptions(line, context);
  for (const auto add : kAddCommands)
    add(line, context);
  try {
    line.root().parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::cout << HelpText(PageOf(line, line.Chosen()), OutputTerminal().width);
    return End(context);
  } catch (const CLI::CallForVersion& version) {
    std::cout << version.what() << '\n';
    return End(context);
  } catch (const CLI::ParseError& error) {
    return Fail(context, ExitCode::kUsage, line.Explain(error));
  }
  return Run(context);
}

}  // namespace
}  // namespace perictl

int main(int argc, char** argv) {
  const perictl::Consoles consoles;
  return perictl::Main(argc, argv);
}
