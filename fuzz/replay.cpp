// Feeds every file of a corpus directory to a fuzz target: what fuzzing has found stays fixed.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int count, char **arguments) {
    if (count != 2) return 2;
    size_t files = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(arguments[1])) {
        if (!entry.is_regular_file()) continue;
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
        ++files;
    }
    std::printf("%zu files\n", files);
    return files == 0 ? 1 : 0;
}
