#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tests/fuzz/Fuzz.h"

using namespace korvel;

namespace korvel {

// Hands every file of the folders named on the command line to the fuzz target. Fails when there is
// none; the name of a file stands on standard error before a target that ends the program. Words
// that begin with "--" are the target's own.

namespace {

void replay(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
  std::fprintf(stderr, "%s\n", file.c_str());
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

}  // namespace korvel

extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* count, char*** arguments);

int main(int count, char** arguments) {
  if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&count, &arguments);
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < count; ++i) {
    if (std::string_view(arguments[i]).starts_with("--")) continue;
    for (const auto& entry : std::filesystem::directory_iterator(arguments[i]))
      files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  for (const auto& file : files) replay(file);
  std::fprintf(stderr, "%zu files\n", files.size());
  return files.empty() ? 1 : 0;
}
