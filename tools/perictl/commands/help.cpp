// perictl help, and the hidden command by which the build makes manual pages and completions.
#include <filesystem>
#include <iostream>
#include <memory>

#include "cli/page.h"
#include "commands/commands.h"
#include "common/files.h"
#include "common/suggestion.h"

namespace perictl {
namespace {

namespace fs = std::filesystem;

void Help(const CommandLine& line, const std::vector<std::string>& words) {
  const CLI::App* command = &line.root();
  for (const std::string& word : words) {
    std::vector<std::string> names;
    const CLI::App* found = nullptr;
    for (const CLI::App* sub : CommandsOf(*command)) {
      names.push_back(sub->get_name());
      if (sub->get_name() == word) found = sub;
    }
    if (found == nullptr) {
      throw Failure(ExitCode::kUsage, "there is no command '" + word + "'" +
                                          perilink::tools::DidYouMean(word, names));
    }
    command = found;
  }
  std::cout << HelpText(PageOf(line, *command), OutputTerminal().width);
}

void WriteNew(const fs::path& file, const std::string& content) {
  fs::create_directories(file.parent_path());
  perilink::tools::WriteWholeFile(file.string(), content);
}

void WritePages(const CommandPage& page, const fs::path& folder, const std::string& date) {
  WriteNew(folder / (ManName(page) + ".1"), ManPage(page, date));
  for (const CommandPage& sub : page.commands)
    WritePages(sub, folder, date);
}

void Generate(const CommandLine& line, const fs::path& share, const std::string& date) {
  const CommandPage root = PageOf(line, line.root());
  WritePages(root, share / "man" / "man1", date);
  WriteNew(share / "bash-completion" / "completions" / "perictl", BashCompletion(root));
  WriteNew(share / "zsh" / "site-functions" / "_perictl", ZshCompletion(root));
  WriteNew(share / "fish" / "vendor_completions.d" / "perictl.fish", FishCompletion(root));
}

}  // namespace

void AddHelpCommand(CommandLine& line, Context& context) {
  CLI::App& command = line.Add(
      line.root(),
      {"help", "print the help of a command", {}, {{"perictl help config set", "as with --help"}}});
  const auto words = std::make_shared<std::vector<std::string>>();
  command.add_option("COMMAND", *words, "the command; without it, perictl itself")
      ->type_name("COMMAND");
  SetRun(command, context, [&line, words] { Help(line, *words); });
}

void AddGenerateCommand(CommandLine& line, Context& context) {
  CLI::App& command =
      line.Add(line.root(), {"generate", "write manual pages and completions", {}, {}});
  command.group("");
  const auto folder = std::make_shared<std::string>();
  const auto date = std::make_shared<std::string>();
  command.add_option("FOLDER", *folder, "the share folder")->required()->type_name("FOLDER");
  command.add_option("DATE", *date, "that the pages bear")->required()->type_name("DATE");
  SetRun(command, context, [&line, folder, date] { Generate(line, *folder, *date); });
}

}  // namespace perictl
