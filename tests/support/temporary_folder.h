// A folder of a test's own, which goes with it.
#ifndef PERILINK_TESTS_SUPPORT_TEMPORARY_FOLDER_H_
#define PERILINK_TESTS_SUPPORT_TEMPORARY_FOLDER_H_

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace perilink::testing {

class TemporaryFolder {
 public:
  TemporaryFolder() { std::filesystem::create_directories(path_); }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string At(const std::filesystem::path& name) const { return (path_ / name).string(); }
  std::string Content(const std::filesystem::path& name) const {
    std::ifstream file(path_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // In folders that are made where they lack.
  template <typename Bytes>
  void Store(const std::filesystem::path& name, const Bytes& content) const {
    std::filesystem::create_directories((path_ / name).parent_path());
    std::ofstream file(path_ / name, std::ios::binary);
    std::copy(std::begin(content), std::end(content), std::ostreambuf_iterator<char>(file));
  }

 private:
  const std::filesystem::path path_ =
      std::filesystem::canonical(std::filesystem::temp_directory_path()) /
      ("perilink-" + std::to_string(std::random_device{}()));
};

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SUPPORT_TEMPORARY_FOLDER_H_
