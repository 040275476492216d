#include "context.h"

#include <algorithm>
#include <filesystem>

#include "cli/command_line.h"
#include "common/suggestion.h"
#include "perilink/protocol.h"
#include "perilink/version.h"
#include "terminal/terminal.h"

namespace perictl {
namespace {

namespace tools = perilink::tools;

// "mouse", or several with commas between them.
CLI::Validator VirtualModelList() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        const std::vector<std::string> models = VirtualModels();
        for (size_t start = 0; start <= text.size();) {
          const size_t end = std::min(text.find(',', start), text.size());
          const std::string word = text.substr(start, end - start);
          if (std::find(models.begin(), models.end(), word) == models.end()) {
            return "'" + word +
                   "' can't be simulated; right is, for example, --virtual=mouse or "
                   "--virtual=mouse,keyboard" +
                   tools::DidYouMean(word, models);
          }
          start = end + 1;
        }
        return "";
      },
      "");
}

void AddSelectionOptions(CLI::App& app, Selection& selection) {
  const std::string group = "Which device";
  app.add_option("-d,--device", selection.device, "the one with this number or name in the list")
      ->type_name("NUMBER|NAME")
      ->group(group);
  CLI::Option* const vid = app.add_option("--vid", selection.vendor_id, "vendor id")
                               ->check(HexId())
                               ->type_name("HEX4")
                               ->group(group);
  app.add_option("--pid", selection.product_id, "product id")
      ->check(HexId())
      ->type_name("HEX4")
      ->group(group)
      ->needs(vid);
  app.add_option("--path", selection.path, "path of the interface that takes its commands")
      ->type_name("PATH")
      ->group(group);
  app.add_option("--key", selection.key, "a part of that path")->type_name("TEXT")->group(group);
  CLI::Option* const keyboard =
      app.add_flag("--keyboard", selection.keyboard, "speak to it as to a keyboard, whatever it is")
          ->group(group);
  app.add_flag("--mouse", selection.mouse, "speak to it as to a mouse, whatever it is")
      ->group(group)
      ->excludes(keyboard);
}

void AddVirtualOptions(CLI::App& app, VirtualChoice& choice) {
  if (VirtualModels().empty()) return;
  const std::string group = "Virtual devices";
  app.add_flag("--virtual{mouse}", choice.models,
               "simulate a device instead of the machine's: mouse, keyboard, or several with "
               "commas between them; without =MODEL a mouse")
      ->check(VirtualModelList())
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
      ->type_name("MODEL")
      ->group(group);
  app.add_option("--virtual-fault", choice.fault, VirtualFaultHelp())
      ->check(CLI::Validator([](std::string& faults) { return CheckVirtualFaults(faults); }, ""))
      ->type_name("FAULT[@TIME],...")
      ->group(group);
  app.add_option("--virtual-memory", choice.memory,
                 "keep its configuration in this image of 6960 bytes, made if it is not there")
      ->type_name("FILE")
      ->group(group);
  // For tests.
  app.add_flag("--virtual-time", choice.virtual_time)->group("");
}

void LoadMemory(Context& context) {
  const std::string& name = context.virtual_device.memory;
  if (name.empty()) return;
  tools::RequireWritable(name);
  if (!std::filesystem::exists(name)) {
    const std::vector<uint8_t> image = VirtualMemory();
    tools::CreateNewFile(name, std::string(image.begin(), image.end()));
  }
  context.memory_lock = std::make_unique<tools::FileLock>(name);
  context.memory_before = tools::ReadWholeFile(name, PERILINK_FLASH_IMAGE_SIZE);
  const std::string& image = context.memory_before;
  if (image.size() != PERILINK_FLASH_IMAGE_SIZE) {
    throw Failure(ExitCode::kFile, name + ": not an image of 6960 bytes");
  }
  SetVirtualMemory({reinterpret_cast<const uint8_t*>(image.data()), image.size()});
}

}  // namespace

const ModelCatalog& Context::Models() const {
  if (!models_) {
    models_ = std::make_unique<ModelCatalog>(model);
    for (const CatalogProblem& it : models_->problems())
      Tell("no description of a model, left alone: " + it.file + ": " + it.problem);
  }
  return *models_;
}

void AddCommonOptions(CommandLine& line, Context& context) {
  CLI::App& app = line.root();
  app.set_version_flag("--version", "perictl " PERILINK_VERSION_TEXT, "print the version");
  app.add_flag_callback(
      "--json", [&context] { context.report.UseJson(true); },
      "print JSON: one document, or one object a line for watches");
  app.add_option("--model", context.model,
                 "describe the device by this file or model; none: show and take numbers alone")
      ->type_name("FILE|NAME");
  AddSelectionOptions(app, context.selection);
  AddVirtualOptions(app, context.virtual_device);
}

void PrepareDevices(Context& context) {
  VirtualChoice& choice = context.virtual_device;
  if (choice.virtual_time) StartVirtualTime();
  const bool implied = !choice.fault.empty() || !choice.memory.empty() || choice.virtual_time;
  if (choice.models.empty() && implied) choice.models = "mouse";
  if (choice.models.empty()) return;
  const bool several = choice.models.find(',') != std::string::npos;
  Tell((several ? "using virtual devices: " : "using a virtual ") + choice.models +
       (choice.fault.empty() ? "" : " (" + choice.fault + ")"));
  PlugVirtualDevices(choice);
  LoadMemory(context);
}

void FinishDevices(Context& context) {
  const std::string& name = context.virtual_device.memory;
  if (!context.memory_lock) return;
  const std::vector<uint8_t> bytes = VirtualMemory();
  const std::string image(bytes.begin(), bytes.end());
  if (image != context.memory_before) tools::WriteWholeFile(name, image);
}

}  // namespace perictl
