// perictl udev-rule: the system's rule by which an ordinary user may open a vendor's devices.
#include <cctype>
#include <iostream>
#include <memory>
#include <string>

#include "commands/commands.h"
#include "exit_codes.h"
#include "system.h"

namespace perictl {
namespace {

// A number below 73, where the system turns the tag into a permission.
constexpr char kFile[] = "/etc/udev/rules.d/70-perilink.rules";

void CheckGroup(const std::string& group) {
  if (group.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_-") == group.npos) return;
  throw Failure(ExitCode::kUsage, "'" + group + "' is no group's name, as in plugdev");
}

// What is printed is the file: what there is to say stands in its comments.
void PrintRule(Context& context, const std::string& group) {
  std::string vendor = context.selection.vendor_id;
  if (vendor.empty())
    throw Failure(ExitCode::kUsage, "whose devices? Give --vid, as in --vid 1234");
  CheckGroup(group);
  const std::string command =
      "perictl udev-rule --vid " + vendor + (group.empty() ? "" : " --group " + group);
  // As the kernel spells it in a HID device's name, BUS:VENDOR:PRODUCT.
  for (char& digit : vendor)
    digit = static_cast<char>(std::toupper(static_cast<unsigned char>(digit)));
  const std::string grant =
      group.empty() ? "TAG+=\"uaccess\"" : "MODE=\"0660\", GROUP=\"" + group + "\"";
  const std::string rule = "SUBSYSTEM==\"hidraw\", KERNELS==\"*:" + vendor + ":*\", " + grant;
  if (context.report.json()) {
    context.report.Data("file", kFile);
    context.report.Data("rule", rule);
    return;
  }
  std::cout << "# " << (group.empty() ? "Who sits at this machine" : "The group " + group)
            << " may use the HID devices of vendor " << vendor
            << ". To install it, for devices that\n# are plugged in already, too:\n#   " << command
            << " | sudo tee " << kFile
            << "\n#   sudo udevadm control --reload\n"
               "#   sudo udevadm trigger --action=add --subsystem-match=hidraw\n";
  if (group.empty()) {
    std::cout
        << "# Where nobody sits, as on a server, --group GROUP makes a rule for the members of"
           " a group.\n";
  }
  std::cout << rule << '\n';
}

}  // namespace

void AddUdevRuleCommand(CommandLine& line, Context& context) {
  if (!kHasUdev) return;
  CLI::App& command = line.Add(
      line.root(),
      {"udev-rule",
       "print the rule that lets you open the devices of a vendor (--vid)",
       {"Devices belong to the system's administrator until a rule permits more. The rule's "
        "comments say how to install it."},
       {{"perictl udev-rule --vid 1234", "for whoever sits at the machine"},
        {"perictl udev-rule --vid 1234 --group plugdev", "for a group's members"}}});
  const auto group = std::make_shared<std::string>();
  command.add_option("--group", *group, "for a group's members, not for who sits at the machine")
      ->type_name("GROUP");
  SetRun(command, context, [&context, group] { PrintRule(context, *group); });
}

}  // namespace perictl
