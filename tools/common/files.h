// Small files, read and written whole, so that nobody's file is lost.
#ifndef PERILINK_TOOLS_COMMON_FILES_H_
#define PERILINK_TOOLS_COMMON_FILES_H_

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace perilink::tools {

// What can't be done with a file, and why: "NAME: REASON".
class FileError : public std::runtime_error {
 public:
  FileError(const std::string& name, const std::string& reason)
      : std::runtime_error(name + ": " + reason) {}
};

// Throws FileError when it can't be read, or is longer than `most` bytes.
std::string ReadWholeFile(const std::string& name, size_t most);

// Whether a link at the name is written through to what it names. One that another user made never
// is.
enum class Links { kOwnAreFollowed, kNone };

// Writes a regular file. One that was there before is replaced by the whole new one, with its owner
// and mode, or stays as it is. Throws FileError, for example when it is read-only, a pipe or a link
// that is not to be followed.
void WriteWholeFile(const std::string& name, const std::string& content,
                    Links links = Links::kOwnAreFollowed);

// Throws the FileError that WriteWholeFile would throw for what stands at the name or for its
// folder, as far as that can be told beforehand. Changes nothing.
void RequireWritable(const std::string& name, Links links = Links::kOwnAreFollowed);

// Writes a new file that only this user can read; false when there is one already.
bool CreateNewFile(const std::string& name, const std::string& content);

// Holds a file, which must be there, against other processes that do the same.
class FileLock {
 public:
  // Throws FileError when another process holds it for longer than two seconds.
  explicit FileLock(const std::string& name);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// ---- Folders -----------------------------------------------------------------------------------

// The user's folders for what this system keeps and for what the user puts there; nothing when the
// environment names none. They need not be there.
std::optional<std::string> StateFolder();
std::optional<std::string> ConfigFolder();
// The folder "share/perilink" of the installation, or of the build, that the program belongs to.
std::string DataFolder();

// Makes the folder, and those above it, for this user alone. Throws FileError.
void MakeFolder(const std::string& name);

// What an error number of the system means for a file that is read or written.
std::string FileReason(int error, bool writing);

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_COMMON_FILES_H_
