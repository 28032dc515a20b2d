// Runs a fuzz target over its corpus without libFuzzer: each input as it is, cut at each length, and with
// each of its octets changed in a few ways. A broken property or a sanitizer finding ends the process.

#include "Fuzz.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

/// On the heap and exactly as long as the input, so that a sanitizer sees every octet read beyond it.
void Run(const Bytes& input) {
    Bytes copy;
    copy.assign(input.begin(), input.end());
    LLVMFuzzerTestOneInput(copy.data(), copy.size());
}

void RunWithChanges(const Bytes& input) {
    Run(input);
    for (std::size_t size = 0; size < input.size(); ++size)
        Run(Bytes(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(size)));
    Bytes changed(input);
    for (std::size_t index = 0; index < input.size(); ++index) {
        for (const unsigned octet :
             {0x00U, 0xFFU, input[index] + 1U, input[index] - 1U, input[index] ^ 0x80U}) {
            changed[index] = static_cast<std::uint8_t>(octet & 0xFF);
            Run(changed);
        }
        changed[index] = input[index];
    }
}

Bytes Read(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <folder with the corpus>\n", argv[0]);
        return 2;
    }
    std::vector<std::filesystem::path> inputs;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1], error))
        inputs.push_back(entry.path());
    if (inputs.empty()) {
        std::fprintf(stderr, "%s: no inputs in %s\n", argv[0], argv[1]);
        return 2;
    }
    std::sort(inputs.begin(), inputs.end());
    for (const auto& input : inputs) {
        std::printf("%s\n", input.filename().c_str());
        std::fflush(stdout);
        RunWithChanges(Read(input));
    }
    return 0;
}
