// A file descriptor that is closed with its owner.
#ifndef PERILINK_PLATFORM_SRC_FILE_DESCRIPTOR_H_
#define PERILINK_PLATFORM_SRC_FILE_DESCRIPTOR_H_

#include <unistd.h>

#include <utility>

namespace perilink::platform {

class FileDescriptor {
 public:
  explicit FileDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~FileDescriptor() {
    if (valid()) close(descriptor_);
  }

  bool valid() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }

 private:
  int descriptor_;
};

}  // namespace perilink::platform

#endif  // PERILINK_PLATFORM_SRC_FILE_DESCRIPTOR_H_
