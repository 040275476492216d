// Completions for three shells, made from the command line's pages.
#include <functional>

#include "cli/page.h"
#include "perilink/version.h"
#include "terminal/text.h"
#include "words/vocabulary.h"

namespace perictl {
namespace {

void Visit(const CommandPage& page, const std::function<void(const CommandPage&)>& visit) {
  visit(page);
  for (const CommandPage& sub : page.commands)
    Visit(sub, visit);
}

std::vector<OptionText> OptionsOf(const CommandPage& page) {
  std::vector<OptionText> options;
  for (const OptionGroup& group : page.groups)
    options.insert(options.end(), group.options.begin(), group.options.end());
  return options;
}

// Words that may stand where an operand is wanted: commands, or the record's fields.
std::vector<std::string> WordsOf(const CommandPage& page) {
  std::vector<std::string> words;
  for (const CommandPage& sub : page.commands)
    words.push_back(sub.text->name);
  for (const OptionText& operand : page.operands) {
    const bool assigns = operand.names[0] == "FIELD=VALUE";
    if (!assigns && operand.names[0] != "FIELD") continue;
    for (const std::string& name : perilink::tools::Vocabulary().Names())
      words.push_back(name + (assigns ? "=" : ""));
  }
  return words;
}

bool TakesFile(const CommandPage& page) {
  for (const OptionText& operand : page.operands) {
    if (operand.names[0].rfind("FILE", 0) == 0) return true;
  }
  return false;
}

// As one word of a shell, in single quotes.
std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text)
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

std::string Note(const char* comment) {
  return std::string(comment) + " Made by perictl " PERILINK_VERSION_TEXT
                                " from its own command line; not to be edited.\n";
}

}  // namespace

// ---- bash --------------------------------------------------------------------------------------

std::string BashCompletion(const CommandPage& root) {
  std::string steps;
  std::string words;
  std::string values;
  std::vector<std::string> seen;
  Visit(root, [&](const CommandPage& page) {
    for (const CommandPage& sub : page.commands)
      steps += "      " + Quoted(sub.name) + ") path=" + Quoted(sub.name) + " ;;\n";
    std::vector<std::string> options;
    for (const OptionText& option : OptionsOf(page)) {
      for (const std::string& name : option.names) {
        options.push_back(name + (option.optional_value ? "=" : ""));
        if (option.value.empty() || option.optional_value) continue;
        if (std::find(seen.begin(), seen.end(), name) != seen.end()) continue;
        seen.push_back(name);
        const std::string choices = Joined(option.Choices(), " ");
        const std::string reply = option.TakesFile()
                                      ? "compgen -f -- \"$cur\""
                                      : "compgen -W " + Quoted(choices) + " -- \"$cur\"";
        values += "    " + name + ") mapfile -t COMPREPLY < <(" + reply + "); return ;;\n";
      }
    }
    words += "    " + Quoted(page.name) + ")\n      options=" + Quoted(Joined(options, " ")) +
             "\n      words=" + Quoted(Joined(WordsOf(page), " ")) +
             "\n      files=" + (TakesFile(page) ? "1" : "''") + " ;;\n";
  });
  return Note("#") +
         "_perictl() {\n"
         "  local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}\n"
         "  local path=perictl options='' words='' files='' i\n"
         "  COMPREPLY=()\n"
         "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
         "    case \"$path ${COMP_WORDS[i]}\" in\n" +
         steps +
         "    esac\n"
         "  done\n"
         "  case $previous in\n" +
         values +
         "  esac\n"
         "  case $path in\n" +
         words +
         "  esac\n"
         "  if [[ $cur == -* ]]; then\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$cur\")\n"
         "  else\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$cur\"\n"
         "      [[ -z $files ]] || compgen -f -- \"$cur\")\n"
         "  fi\n"
         "  [[ ${COMPREPLY[0]-} != *= ]] || compopt -o nospace 2>/dev/null\n"
         "}\n"
         "complete -F _perictl perictl\n";
}

// ---- zsh ---------------------------------------------------------------------------------------

namespace {

// A description inside _arguments' brackets.
std::string ZshText(const std::string& text) {
  std::string plain;
  for (const char c : text) {
    if (c == '[' || c == ']' || c == ':' || c == '\\') plain += '\\';
    plain += c;
  }
  return plain;
}

std::string ZshAction(const OptionText& option) {
  if (option.TakesFile()) return "_files";
  const std::vector<std::string> choices = option.Choices();
  return choices.empty() ? " " : "(" + Joined(choices, " ") + ")";
}

std::string ZshFunction(const CommandPage& page) {
  std::string name = page.name;
  std::replace(name.begin(), name.end(), ' ', '_');
  return "_" + name;
}

std::string ZshCommand(const CommandPage& page) {
  std::string text = ZshFunction(page) + "() {\n  local state line\n  _arguments -s -S -C";
  for (const OptionText& option : OptionsOf(page)) {
    const std::string value =
        option.value.empty() ? "" : ":" + ZshText(option.value) + ":" + ZshAction(option);
    for (const std::string& option_name : option.names) {
      // An optional value follows after "=" alone.
      const std::string glue = option.value.empty() ? "" : option.optional_value ? "=-" : "";
      text += " \\\n    " + Quoted(option_name + glue + "[" + ZshText(option.description) + "]" +
                                   (option.optional_value ? ":" : "") + value);
    }
  }
  const std::vector<std::string> words = WordsOf(page);
  if (!page.commands.empty()) {
    text += " \\\n    '1:command:->command' '*::operand:->operand'\n  case $state in\n  command)\n";
    text += "    local -a commands=(\n";
    for (const CommandPage& sub : page.commands)
      text += "      " + Quoted(sub.text->name + ":" + ZshText(sub.text->summary)) + "\n";
    text += "    )\n    _describe command commands ;;\n  operand)\n    case $line[1] in\n";
    for (const CommandPage& sub : page.commands)
      text += "    " + sub.text->name + ") " + ZshFunction(sub) + " ;;\n";
    return text + "    esac ;;\n  esac\n}\n";
  }
  if (!words.empty()) {
    text += " \\\n    " + Quoted("*:field:compadd -S \"\" -- " + Joined(words, " "));
  } else if (TakesFile(page)) {
    text += " \\\n    '*:file:_files'";
  }
  return text + "\n}\n";
}

}  // namespace

std::string ZshCompletion(const CommandPage& root) {
  std::string text = "#compdef perictl\n" + Note("#");
  Visit(root, [&](const CommandPage& page) { text += ZshCommand(page); });
  return text + "_perictl \"$@\"\n";
}

// ---- fish --------------------------------------------------------------------------------------

namespace {

std::string FishQuoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "'";
}

std::string FishOption(const OptionText& option, const std::string& condition) {
  std::string text = "complete -c perictl" + condition;
  for (const std::string& name : option.names)
    text += name[1] == '-' ? " -l " + name.substr(2) : " -s " + name.substr(1);
  if (!option.value.empty() && !option.optional_value) {
    const std::string choices = Joined(option.Choices(), " ");
    text += option.TakesFile() ? " -r -F" : " -x";
    if (!choices.empty()) text += " -a " + FishQuoted(choices);
  }
  return text + " -d " + FishQuoted(option.description) + "\n";
}

}  // namespace

std::string FishCompletion(const CommandPage& root) {
  std::string groups;
  Visit(root, [&](const CommandPage& page) {
    if (!page.is_root && !page.commands.empty()) groups += " " + page.text->name;
  });
  std::string text = Note("#") +
                     "# True behind exactly these commands.\n"
                     "function __perictl_at\n"
                     "  set -l commands\n"
                     "  for word in (commandline -opc)[2..]\n"
                     "    string match -q -- '-*' $word; and continue\n"
                     "    set -a commands $word\n"
                     "    contains -- $word" +
                     groups +
                     "; or break\n"
                     "    test (count $commands) -lt 2; or break\n"
                     "  end\n"
                     "  test \"$commands\" = \"$argv\"\n"
                     "end\n"
                     "complete -c perictl -f\n";
  Visit(root, [&](const CommandPage& page) {
    const std::string place = page.is_root ? "" : page.name.substr(root.name.size() + 1);
    const std::string condition = " -n " + FishQuoted("__perictl_at " + place);
    for (const CommandPage& sub : page.commands) {
      text += "complete -c perictl" + condition + " -a " + sub.text->name + " -d " +
              FishQuoted(sub.text->summary) + "\n";
    }
    for (const OptionGroup& group : page.groups) {
      // Those of all commands come once, with the root.
      const bool own = page.is_root || group.title == "Options";
      for (const OptionText& option : group.options) {
        if (own) text += FishOption(option, page.is_root ? "" : condition);
      }
    }
    const std::vector<std::string> words = WordsOf(page);
    if (page.commands.empty() && !words.empty()) {
      text += "complete -c perictl" + condition + " -a " + FishQuoted(Joined(words, " ")) + "\n";
    }
    if (TakesFile(page)) text += "complete -c perictl" + condition + " -F\n";
  });
  return text;
}

}  // namespace perictl
