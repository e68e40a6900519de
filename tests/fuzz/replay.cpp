// SPDX-License-Identifier: MIT
// Runs a fuzzer over files, and over the files in folders, without libFuzzer.
#include "fuzz.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace fs = std::filesystem;

int main(int argc, char *argv[])
{
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i]))
            files.emplace_back(argv[i]);
        else
            std::copy(fs::directory_iterator(argv[i]), fs::directory_iterator(), std::back_inserter(files));
    }
    for (const fs::path &file : files) {
        std::printf("%s\n", file.c_str());
        std::fflush(stdout);
        std::ifstream stream(file, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
        const std::vector<uint8_t> input(bytes.begin(), bytes.end());
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    return files.empty() ? 1 : 0;
}
