// The descriptions of models that are at hand: the user's, and those that came with the
// installation.
#ifndef PERILINK_TOOLS_PERICTL_SELECTION_MODEL_CATALOG_H_
#define PERILINK_TOOLS_PERICTL_SELECTION_MODEL_CATALOG_H_

#include <string>
#include <vector>

#include "words/model.h"

namespace perictl {

using perilink::tools::DeviceId;
using perilink::tools::Model;

struct CatalogEntry {
  std::string file;
  bool of_user = false;
  Model model;
};

struct CatalogProblem {
  std::string file;
  std::string problem;
};

class ModelCatalog {
 public:
  // `chosen` is what --model says: a file, the short name of a model, "none" for no descriptions at
  // all, or empty. Throws Failure(kFile) for a chosen file that is no description, and
  // Failure(kUsage) for a name that there is not. Any other file that is none merely is a problem:
  // its devices are shown in numbers.
  explicit ModelCatalog(const std::string& chosen);

  // The description of a device; null when there is none. A chosen one is every device's.
  const Model* For(const DeviceId& id) const;
  // The model that says of these ids that they are its boot loader's.
  const Model* ForBoot(const DeviceId& id) const;
  // The one that was chosen; null when none was.
  const Model* Chosen() const { return chosen_; }
  // By its short name.
  const Model* Named(const std::string& name) const;

  // The user's first.
  const std::vector<CatalogEntry>& entries() const { return entries_; }
  const std::vector<CatalogProblem>& problems() const { return problems_; }

  // Where files are looked for: the user's folder, if there is one, and the installed one.
  static std::vector<std::string> Folders();

 private:
  void AddFolder(const std::string& folder, bool of_user);

  std::vector<CatalogEntry> entries_;
  std::vector<CatalogProblem> problems_;
  const Model* chosen_ = nullptr;
};

// A description from a file, read and checked. Throws perilink::tools::ConfigError, or FileError
// when it can't be read.
Model ReadModelFile(const std::string& name);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_SELECTION_MODEL_CATALOG_H_
