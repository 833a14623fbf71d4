// A fuzz target as a plain program: runs it once over each input, a file or one in a directory.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Path = std::filesystem::path;

void addInputs(const Path& path, std::vector<Path>& inputs) {
  if (!std::filesystem::is_directory(path)) {
    inputs.push_back(path);
    return;
  }
  for (const auto& entry : std::filesystem::directory_iterator(path)) inputs.push_back(entry.path());
}

bool runOne(const Path& path) {
  std::ifstream stream(path, std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(stream), {});
  if (!stream) return false;
  // A copy of exactly this size: a sanitizer then sees a read beyond its end.
  const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<Path> inputs;
  for (int i = 1; i < argc; ++i) addInputs(argv[i], inputs);
  // What the target prints is not of interest.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  for (const Path& input : inputs) {
    if (runOne(input)) continue;
    std::fprintf(stderr, "%s cannot be read\n", input.c_str());
    return 1;
  }
  std::fprintf(stderr, "%zu inputs\n", inputs.size());
  return inputs.empty() ? 1 : 0;
}
