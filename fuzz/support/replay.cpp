// In the fuzzer's place: runs a target once on each file of a folder, with any compiler.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
// Not every target has one.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
    return 2;
  }
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  std::vector<std::filesystem::path> files(std::filesystem::directory_iterator(argv[1]), {});
  std::sort(files.begin(), files.end());
  for (const auto& path : files) {
    std::fprintf(stderr, "%s\n", path.filename().c_str());
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> input(std::istreambuf_iterator<char>(file), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
  }
  return 0;
}
