// SPDX-License-Identifier: Apache-2.0
// Runs a fuzzer over every file of the folders given: the corpus as a test, without libFuzzer.
#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/fuzzer.h"

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i]))
            inputs.push_back(entry.path());
    }
    std::ranges::sort(inputs);
    for (const auto& input : inputs) {
        std::ifstream file(input, std::ios::binary);
        std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        if (!file) return fprintf(stderr, "cannot read %s\n", input.c_str()), 1;
        // Said before it runs: the last line names the input that ends the program.
        printf("%s\n", input.filename().c_str());
        fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    printf("%zu inputs replayed\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
