#include "files.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "exit_codes.h"

namespace perictl {
namespace {

// No configuration comes near it, and a device file may have no end.
constexpr std::streamsize kLongestConfigFile = 4 << 20;

bool WriteWhole(const std::string& name, const std::string& content) {
  std::ofstream file(name, std::ios::binary | std::ios::trunc);
  file.write(content.data(), std::ssize(content));
  file.close();
  return static_cast<bool>(file);
}

}  // namespace

std::string ReadFile(const std::string& name) {
  std::error_code ignored;
  std::ifstream file(name, std::ios::binary);
  if (!file || std::filesystem::is_directory(name, ignored)) {
    throw Failure(ExitCode::kFile, name + ": the file can't be read");
  }
  std::string content(static_cast<size_t>(kLongestConfigFile), '\0');
  file.read(content.data(), kLongestConfigFile);
  if (!file.eof()) throw Failure(ExitCode::kFile, name + ": this is too long for a configuration");
  content.resize(static_cast<size_t>(file.gcount()));
  return content;
}

void WriteFile(const std::string& name, const std::string& content) {
  namespace fs = std::filesystem;
  std::error_code error;
  const bool special = fs::exists(name, error) && !fs::is_regular_file(name, error);
  const std::string target = special ? name : name + ".part";
  bool written = WriteWhole(target, content);
  if (written && !special) {
    fs::rename(target, name, error);
    written = !error;
  }
  if (written) return;
  if (!special) fs::remove(target, error);
  throw Failure(ExitCode::kFile, name + ": the file can't be written");
}

}  // namespace perictl
