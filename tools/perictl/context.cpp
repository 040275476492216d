#include "context.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>

#include "exit_codes.h"
#include "files.h"
#include "perilink/finder.h"
#include "perilink/records.h"
#include "virtual_devices.h"

namespace perictl {
namespace {

const CLI::Validator kHexId(
    [](std::string& text) {
      const bool good =
          text.size() == 4 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
      return good ? std::string() : "'" + text + "' is not four hexadecimal digits, as in 1a2b";
    },
    "HEX4");

void LoadMemory(const std::string& name) {
  std::error_code error;
  if (name.empty() || !std::filesystem::exists(name, error)) return;
  const std::string image = ReadFile(name);
  if (image.size() != PERILINK_FLASH_IMAGE_SIZE) {
    throw Failure(ExitCode::kFile, name + ": not an image of 6960 bytes");
  }
  SetVirtualMemory({reinterpret_cast<const uint8_t*>(image.data()), image.size()});
}

}  // namespace

void AddCommonOptions(CLI::App& app, Context& context) {
  app.add_flag_callback(
      "--json", [&context] { context.report.UseJson(true); },
      "print JSON: one document, or one object a line for watches");

  Selection& selection = context.selection;
  const std::string group = "Which device";
  CLI::Option* vid =
      app.add_option("--vid", selection.vendor_id, "vendor id")->check(kHexId)->group(group);
  CLI::Option* pid =
      app.add_option("--pid", selection.product_id, "product id")->check(kHexId)->group(group);
  CLI::Option* path =
      app.add_option("--path", selection.path, "path of the interface, as listed")->group(group);
  CLI::Option* key = app.add_option("--key", selection.key, "a part of the path")->group(group);
  app.add_flag("--keyboard", selection.keyboard, "the device is a keyboard")->group(group);
  pid->needs(vid);
  path->excludes(vid)->excludes(pid)->excludes(key);
  key->excludes(vid)->excludes(pid);

  VirtualChoice& choice = context.virtual_device;
  choice.model = DefaultVirtualModel();
  if (VirtualModels().empty()) return;
  const std::string virtual_group = "Virtual devices";
  app.add_flag("--virtual{mouse}", choice.model, "simulate this device (the default: mouse)")
      ->check(CLI::IsMember(VirtualModels()))
      ->group(virtual_group);
  app.add_option("--virtual-fault", choice.fault, VirtualFaultHelp())
      ->check(CLI::Validator([](std::string& faults) { return CheckVirtualFaults(faults); },
                             "FAULT[@TIME],..."))
      ->group(virtual_group);
  app.add_option("--virtual-memory", choice.memory,
                 "keep its configuration in this image of 6960 bytes, made if it is not there")
      ->group(virtual_group);
  // For tests.
  app.add_flag("--virtual-time", choice.virtual_time)->group("");
}

void PrepareDevices(Context& context) {
  const VirtualChoice& choice = context.virtual_device;
  if (choice.virtual_time) StartVirtualTime();
  if (!choice.model.empty()) {
    std::cerr << "perictl: using a virtual " << choice.model
              << (choice.fault.empty() ? "" : ", " + choice.fault) << '\n';
    PlugVirtualDevice(choice);
    LoadMemory(choice.memory);
    if (choice.model == "keyboard") context.selection.keyboard = true;
  }
  if (context.selection.keyboard) {
    UsbFinder_SetKeyboardMode();
  } else {
    UsbFinder_SetMouseMode();
  }
}

void FinishDevices(const Context& context) {
  const std::string& name = context.virtual_device.memory;
  if (name.empty()) return;
  const std::vector<uint8_t> image = VirtualMemory();
  WriteFile(name, std::string(image.begin(), image.end()));
}

}  // namespace perictl
