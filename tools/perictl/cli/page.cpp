#include "cli/page.h"

#include <algorithm>

#include "exit_codes.h"
#include "perilink/version.h"
#include "terminal/terminal.h"

namespace perictl {
namespace {

OptionText OptionTextOf(const CLI::Option& option) {
  OptionText text;
  if (option.get_positional()) {
    text.names = {option.get_name(true)};
    text.repeats = option.get_items_expected_max() > 1;
  } else {
    for (const std::string& name : option.get_snames())
      text.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
      text.names.push_back("--" + name);
  }
  text.required = option.get_required();
  text.description = option.get_description();
  const bool flag = option.get_items_expected_max() == 0;
  text.optional_value = !option.get_positional() && option.get_expected_min() == 0 &&
                        !option.get_type_name().empty() && option.get_fnames().size() == 1;
  if (!flag || text.optional_value) text.value = option.get_type_name();
  return text;
}

std::vector<OptionText> OptionsIn(const CLI::App& app, const std::string& group) {
  std::vector<OptionText> options;
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_positional() || option->get_group() != group) continue;
    if (option == app.get_help_ptr() && app.get_parent() != nullptr) continue;
    options.push_back(OptionTextOf(*option));
  }
  return options;
}

void AddGroups(const CLI::App& app, std::vector<OptionGroup>& groups) {
  for (const std::string& group : app.get_groups()) {
    if (group.empty()) continue;
    std::vector<OptionText> options = OptionsIn(app, group);
    if (options.empty()) continue;
    const bool general = app.get_parent() == nullptr && group == "Options";
    groups.push_back({general ? "Every command" : group, std::move(options)});
  }
}

// ---- Help --------------------------------------------------------------------------------------

constexpr size_t kIndent = 2;
constexpr size_t kColumn = 26;
constexpr size_t kNarrow = 60;

std::string Heading(const std::string& title) {
  return "\n" + Styled(OutputTerminal(), Style::kHeading, title + ":") + "\n";
}

// "  --log FILE              write the upgrade log here"
std::string Row(const std::string& left, const std::string& right, size_t width) {
  const size_t column = width < kNarrow ? 2 * kIndent + 2 : kColumn;
  std::string text = std::string(kIndent, ' ') + left;
  if (text.size() + 2 > column) {
    text += "\n" + std::string(column, ' ');
  } else {
    text += std::string(column - text.size(), ' ');
  }
  return text + Wrapped(right, width, column) + "\n";
}

std::string Paragraph(const std::string& text, size_t width) {
  return (text.rfind(' ', 0) == 0 ? text : Wrapped(text, width, 0)) + "\n";
}

// ---- Manual pages ------------------------------------------------------------------------------

constexpr size_t kManWidth = 78;

// Text that no macro and no escape of the formatter's is hidden in.
std::string Roff(const std::string& text) {
  std::string roff;
  const bool as_it_is = text.rfind(' ', 0) == 0;
  for (const char c : as_it_is ? text : Wrapped(text, kManWidth, 0)) {
    if (c == '\\') {
      roff += "\\e";
    } else if (c == '-') {
      roff += "\\-";
    } else if (c == '\'' && (roff.empty() || roff.back() == '\n')) {
      roff += "\\(aq";
    } else if (c == '.' && (roff.empty() || roff.back() == '\n')) {
      roff += "\\&.";
    } else {
      roff += c;
    }
  }
  return roff;
}

std::string ManOption(const OptionText& option) {
  return ".TP\n.B " + Roff(option.Heading()) + "\n" + Roff(option.description) + "\n";
}

std::string ManParagraphs(const CommandPage& page) {
  std::string text;
  for (const std::string& paragraph : page.text->details) {
    const bool as_it_is = paragraph.rfind(' ', 0) == 0;
    text += text.empty() ? "" : as_it_is ? "" : ".PP\n";
    text += as_it_is ? ".PP\n.nf\n" + Roff(paragraph) + "\n.fi\n" : Roff(paragraph) + "\n";
  }
  return text.empty() ? Roff(page.text->summary) + ".\n" : text;
}

std::string Upper(std::string text) {
  for (char& c : text)
    c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return text;
}

}  // namespace

std::string OptionText::Heading() const {
  std::string heading;
  for (const std::string& name : names)
    heading += (heading.empty() ? "" : ", ") + name;
  if (optional_value) return heading + "[=" + value + "]";
  return value.empty() || names[0][0] != '-' ? heading : heading + " " + value;
}

std::vector<std::string> OptionText::Choices() const {
  std::vector<std::string> choices;
  const bool small =
      std::any_of(value.begin(), value.end(), [](char c) { return c >= 'a' && c <= 'z'; });
  if (!small) return choices;
  for (size_t start = 0; start <= value.size();) {
    const size_t end = std::min(value.find('|', start), value.size());
    choices.push_back(value.substr(start, end - start));
    start = end + 1;
  }
  return choices;
}

std::string CommandPage::Usage() const {
  std::string usage = name + " [OPTIONS]";
  if (!commands.empty()) usage += " COMMAND";
  for (const OptionText& operand : operands) {
    const std::string word = operand.names[0] + (operand.repeats ? "..." : "");
    usage += operand.required ? " " + word : " [" + word + "]";
  }
  return usage;
}

CommandPage PageOf(const CommandLine& line, const CLI::App& command) {
  CommandPage page;
  page.name = FullName(command);
  page.text = &line.TextOf(command);
  page.is_root = command.get_parent() == nullptr;
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional()) page.operands.push_back(OptionTextOf(*option));
  }
  for (const CLI::App* app = &command; app != nullptr; app = app->get_parent())
    AddGroups(*app, page.groups);
  for (const CLI::App* sub : CommandsOf(command))
    page.commands.push_back(PageOf(line, *sub));
  return page;
}

std::string HelpText(const CommandPage& page, size_t width) {
  std::string text = page.text->summary + ".\n\n";
  text[0] = static_cast<char>(text[0] >= 'a' && text[0] <= 'z' ? text[0] - 'a' + 'A' : text[0]);
  text += "Usage: " + Wrapped(page.Usage(), width, 7) + "\n";
  for (const std::string& paragraph : page.text->details)
    text += "\n" + Paragraph(paragraph, width);
  if (!page.commands.empty()) {
    text += Heading("Commands");
    for (const CommandPage& sub : page.commands)
      text += Row(sub.text->name, sub.text->summary, width);
  }
  if (!page.operands.empty()) {
    text += Heading("Operands");
    for (const OptionText& operand : page.operands)
      text += Row(operand.Heading(), operand.description, width);
  }
  for (const OptionGroup& group : page.groups) {
    text += Heading(group.title);
    for (const OptionText& option : group.options)
      text += Row(option.Heading(), option.description, width);
  }
  if (!page.text->examples.empty()) {
    text += Heading("Examples");
    for (const Example& example : page.text->examples)
      text += "  " + example.command + "\n" + std::string(6, ' ') +
              Wrapped(example.does, width, 6) + "\n";
  }
  if (!page.is_root) return text + "\nExit codes: 'perictl --help' lists them.\n";
  text += Heading("Exit codes");
  for (const ExitCodeRow& row : ExitCodes()) {
    const std::string number = std::to_string(static_cast<int>(row.code));
    text += Row(std::string(2 - number.size(), ' ') + number + "  " + row.name, row.meaning, width);
  }
  return text;
}

std::string ManName(const CommandPage& page) {
  std::string name = page.name;
  std::replace(name.begin(), name.end(), ' ', '-');
  return name;
}

std::string ManPage(const CommandPage& page, const std::string& date) {
  const std::string name = ManName(page);
  std::string text = ".TH " + Upper(Roff(name)) + " 1 " + date +
                     " \"perictl " PERILINK_VERSION_TEXT "\" \"perilink\"\n.SH NAME\n" +
                     Roff(name) + " \\- " + Roff(page.text->summary) + "\n";
  text += ".SH SYNOPSIS\n.B " + Roff(page.Usage()) + "\n";
  text += ".SH DESCRIPTION\n" + ManParagraphs(page);
  if (!page.commands.empty()) text += ".SH COMMANDS\n";
  for (const CommandPage& sub : page.commands) {
    text += ".TP\n.BR " + Roff(ManName(sub)) + " (1)\n" + Roff(sub.text->summary) + "\n";
  }
  if (!page.operands.empty()) text += ".SH OPERANDS\n";
  for (const OptionText& operand : page.operands)
    text += ManOption(operand);
  text += ".SH OPTIONS\n";
  for (const OptionGroup& group : page.groups) {
    text += ".SS " + Roff(group.title) + "\n";
    for (const OptionText& option : group.options)
      text += ManOption(option);
  }
  text += ".SH EXIT STATUS\n";
  if (page.is_root) {
    for (const ExitCodeRow& row : ExitCodes()) {
      text += ".TP\n.B " + std::to_string(static_cast<int>(row.code)) + "\n" +
              Roff(std::string(row.name) + ": " + row.meaning) + "\n";
    }
  } else {
    text += ".BR perictl (1)\nlists the exit codes.\n";
  }
  if (!page.text->examples.empty()) text += ".SH EXAMPLES\n";
  for (const Example& example : page.text->examples)
    text += ".TP\n.B " + Roff(example.command) + "\n" + Roff(example.does) + "\n";
  if (!page.is_root) text += ".SH SEE ALSO\n.BR perictl (1)\n";
  return text;
}

}  // namespace perictl
