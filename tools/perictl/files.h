// Small files, read and written whole.
#ifndef PERILINK_TOOLS_PERICTL_FILES_H_
#define PERILINK_TOOLS_PERICTL_FILES_H_

#include <string>

namespace perictl {

// Throws Failure(kFile) when it can't be read, or is longer than 4 MiB.
std::string ReadFile(const std::string& name);
// A file that was there before is replaced by the whole new one or stays. Throws Failure(kFile).
void WriteFile(const std::string& name, const std::string& content);

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_FILES_H_
