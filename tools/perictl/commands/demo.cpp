// perictl demo: what the library does for its host, one step after another on one device.
#include "commands/commands.h"
#include "commands/demo_steps.h"
#include "terminal/interrupt.h"

namespace perictl {
namespace {

void Demo(Context& context) {
  DemoState state{context, DeviceToWrite(context)};
  const InterruptGuard guard;
  for (const DemoStep& step : kDemoSteps) {
    if (Interrupted()) {
      context.report.Section("", "Ended by Ctrl-C");
      if (context.report.json()) context.report.Fact("interrupted", "", "", true);
      return;
    }
    context.report.Section(step.key, step.title);
    step.run(state);
  }
}

}  // namespace

void AddDemoCommand(CommandLine& line, Context& context) {
  CLI::App& command =
      line.Add(line.root(), {"demo",
                             "show on one device what the library does; settings are put back",
                             {"A virtual device gets a new firmware at the end, too."},
                             {{"perictl demo --virtual", "on a virtual mouse"}}});
  SetRun(command, context, [&context] { Demo(context); });
}

}  // namespace perictl
