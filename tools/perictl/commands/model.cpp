// perictl model: the descriptions that are at hand, and whether one makes sense.
#include <memory>

#include "commands/commands.h"
#include "common/files.h"
#include "terminal/text.h"

namespace perictl {
namespace {

namespace tools = perilink::tools;

std::vector<std::string> IdTexts(const Model& model) {
  std::vector<std::string> texts;
  for (const DeviceId& id : model.ids)
    texts.push_back(Hex16(id.vendor) + ":" + Hex16(id.product));
  return texts;
}

void AddModel(Report& report, const Model& model, const std::string& file) {
  std::string ids;
  for (const std::string& id : IdTexts(model))
    ids += " " + id;
  report.Item("models", model.id + " (" + model.name + "), for" + ids + ": " + file,
              {{"model", model.id}, {"name", model.name}, {"ids", IdTexts(model)}, {"file", file}});
}

void List(Context& context) {
  Report& report = context.report;
  const ModelCatalog& models = context.Models();
  report.Section("", "Descriptions of models:");
  report.Data("models", Json::array());
  for (const CatalogEntry& entry : models.entries())
    AddModel(report, entry.model, entry.file);
  if (models.entries().empty()) report.Remark("none");
  for (const std::string& folder : ModelCatalog::Folders())
    report.Item("folders", "looked for in " + folder, folder);
}

void Check(Context& context, const std::string& file) {
  Report& report = context.report;
  report.Section("", "Description:");
  try {
    AddModel(report, ReadModelFile(file), file);
  } catch (const tools::ConfigError& error) {
    throw Failure(ExitCode::kFile, file + ": " + error.what());
  }
  report.Fact("sound", "sound", "yes", true);
}

}  // namespace

void AddModelCommands(CommandLine& line, Context& context) {
  CLI::App& group = line.AddGroup(
      line.root(),
      {"model",
       "list and check descriptions of models",
       {"A description is a small JSON file that gives a device's fields names, units and choices. "
        "Those in the user's folder come before those that came with perictl; --model takes any."},
       {{"perictl model list", "those that are at hand"}}});
  CLI::App& list = line.Add(group, {"list",
                                    "list the descriptions that are at hand",
                                    {},
                                    {{"perictl model list", "which there are, and where"}}});
  SetRun(list, context, [&context] { List(context); });
  const auto file = std::make_shared<std::string>();
  CLI::App& check = line.Add(group, {"check",
                                     "check a description, and name what is wrong with it",
                                     {},
                                     {{"perictl model check mine.json", "one that you write"}}});
  check.add_option("FILE", *file, "the description")->required()->type_name("FILE");
  SetRun(check, context, [&context, file] { Check(context, *file); });
}

}  // namespace perictl
