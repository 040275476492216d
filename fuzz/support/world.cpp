#include "support/world.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "perilink_platform/world.h"

namespace perilink::fuzz {
namespace {

constexpr int64_t kCalendarStart = 1'736'240'585;

std::string ChooseFolder() {
  const std::string name = "perilink-fuzz-" + std::to_string(getpid());
  return (std::filesystem::temp_directory_path() / name).string();
}

const std::string& Folder() {
  static const auto* const folder = new std::string(ChooseFolder());
  return *folder;
}

void RemoveFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(Folder(), ignored);
}

}  // namespace

void EnterWorld() {
  platform::StartVirtual(1);
  std::filesystem::create_directories(Folder());
  platform::SetRegistryFolder(Folder());
  std::atexit(RemoveFolder);
}

std::string RegistryFile() {
  return Folder() + "/registry.txt";
}

void ForgetRegistry() {
  std::remove(RegistryFile().c_str());
  platform::SetRegistryFolder(Folder());
  platform::SetCalendarTime(kCalendarStart);
}

}  // namespace perilink::fuzz
