// What is the same with files everywhere.
#include "common/files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace perilink::tools {

std::string FileReason(int error, bool writing) {
  switch (error) {
    case EACCES:
    case EPERM:
      return "no permission";
    case ENOENT:
    case ENOTDIR:
      return writing ? "no such folder" : "no such file";
    case EISDIR:
      return "it is a folder";
    case ENOSPC:
#ifdef EDQUOT
    case EDQUOT:
#endif
      return "the disk is full";
    case EROFS:
      return "the disk can't be written";
    default:
      return std::strerror(error);
  }
}

std::string ReadWholeFile(const std::string& name, size_t most) {
  const auto close = [](std::FILE* file) { std::fclose(file); };
  const std::unique_ptr<std::FILE, decltype(close)> file(std::fopen(name.c_str(), "rb"), close);
  if (!file) throw FileError(name, "the file can't be read: " + FileReason(errno, false));
  std::string content;
  char buffer[65536];
  while (content.size() <= most) {
    const size_t got = std::fread(buffer, 1, sizeof buffer, file.get());
    if (std::ferror(file.get()) != 0) {
      throw FileError(name, "the file can't be read: " + FileReason(errno, false));
    }
    if (got == 0) return content;
    content.append(buffer, got);
  }
  throw FileError(name, "the file is too long: more than " + std::to_string(most) + " bytes");
}

}  // namespace perilink::tools
