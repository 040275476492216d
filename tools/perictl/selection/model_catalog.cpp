#include "selection/model_catalog.h"

#include <algorithm>
#include <filesystem>

#include "common/files.h"
#include "common/suggestion.h"
#include "exit_codes.h"
#include "words/vocabulary.h"

namespace perictl {
namespace {

namespace fs = std::filesystem;
namespace tools = perilink::tools;

bool Holds(const std::vector<DeviceId>& ids, const DeviceId& id) {
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// The names of the folder's descriptions, in order; none when there is no such folder.
std::vector<std::string> JsonFiles(const std::string& folder) {
  std::vector<std::string> files;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    if (it->path().extension() == ".json") files.push_back(it->path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

Model ReadModelFile(const std::string& name) {
  Model model = tools::ParseModel(tools::ReadWholeFile(name, tools::kLongestModel));
  RequireUsableNames(model);
  return model;
}

std::vector<std::string> ModelCatalog::Folders() {
  std::vector<std::string> folders;
  if (const auto own = tools::ConfigFolder())
    folders.push_back((fs::path(*own) / "models").string());
  folders.push_back((fs::path(tools::DataFolder()) / "models").string());
  return folders;
}

ModelCatalog::ModelCatalog(const std::string& chosen) {
  if (chosen == "none") return;
  const std::vector<std::string> folders = Folders();
  for (size_t i = 0; i < folders.size(); ++i)
    AddFolder(folders[i], i + 1 < folders.size());
  if (chosen.empty()) return;
  if (const Model* const named = Named(chosen)) {
    chosen_ = named;
    return;
  }
  if (chosen.find_first_of("./\\") == std::string::npos && !fs::exists(chosen)) {
    std::vector<std::string> names = {"none"};
    for (const CatalogEntry& entry : entries_)
      names.push_back(entry.model.id);
    throw Failure(ExitCode::kUsage, "there is no model '" + chosen + "', and no such file" +
                                        tools::DidYouMean(chosen, names) +
                                        " ('perictl model list' shows the models)");
  }
  try {
    entries_.insert(entries_.begin(), {chosen, true, ReadModelFile(chosen)});
  } catch (const tools::ConfigError& error) {
    throw Failure(ExitCode::kFile, chosen + ": " + error.what());
  }
  chosen_ = &entries_.front().model;
}

void ModelCatalog::AddFolder(const std::string& folder, bool of_user) {
  for (const std::string& file : JsonFiles(folder)) {
    try {
      entries_.push_back({file, of_user, ReadModelFile(file)});
    } catch (const tools::ConfigError& error) {
      problems_.push_back({file, error.what()});
    } catch (const tools::FileError& error) {
      problems_.push_back({file, error.what()});
    }
  }
}

const Model* ModelCatalog::For(const DeviceId& id) const {
  if (chosen_ != nullptr) return chosen_;
  for (const CatalogEntry& entry : entries_) {
    if (Holds(entry.model.ids, id)) return &entry.model;
  }
  return nullptr;
}

const Model* ModelCatalog::ForBoot(const DeviceId& id) const {
  for (const CatalogEntry& entry : entries_) {
    if (Holds(entry.model.boot_ids, id)) return &entry.model;
  }
  return nullptr;
}

const Model* ModelCatalog::Named(const std::string& name) const {
  for (const CatalogEntry& entry : entries_) {
    if (entry.model.id == name) return &entry.model;
  }
  return nullptr;
}

}  // namespace perictl
