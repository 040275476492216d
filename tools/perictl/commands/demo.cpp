// perictl demo: what the library does for its host, one step after another on one device.
#include "commands/commands.h"
#include "commands/demo_steps.h"
#include "interrupt.h"

namespace perictl {
namespace {

void Demo(Context& context) {
  DemoState state{context, {}};
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

void AddDemoCommand(CLI::App& app, Context& context) {
  app.add_subcommand("demo", "show on one device what the library does; settings are put back")
      ->callback([&context] { context.run = [&context] { Demo(context); }; });
}

}  // namespace perictl
