// Feeds every file of the folders named on the command line to the fuzz entry,
// in name order, so that a corpus found by fuzzing runs as an ordinary test.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz_input.h"

int main(int argc, char** argv)
{
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int a = 1; a < argc; ++a) {
        if (!fs::is_directory(argv[a])) {
            std::fprintf(stderr, "not a folder: %s\n", argv[a]);
            return 2;
        }
        for (const auto& entry : fs::directory_iterator(argv[a]))
            if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& f : files) {
        std::ifstream in(f, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu inputs replayed\n", files.size());
    return files.empty() ? 1 : 0;
}
