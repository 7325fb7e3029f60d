// Runs a fuzz target over the files and folders that are named, without a fuzzer.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" {
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
/// Of targets that prepare something.
__attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);
}

namespace {

namespace fs = std::filesystem;

int inputs = 0;

void run(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    // In memory of exactly that size.
    const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
    ++inputs;
}

} // namespace

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize != nullptr) {
        LLVMFuzzerInitialize(&argc, &argv);
    }
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i])) {
            run(argv[i]);
            continue;
        }
        for (const auto& entry : fs::recursive_directory_iterator(argv[i])) { // as the fuzzer does
            if (entry.is_regular_file()) {
                run(entry.path());
            }
        }
    }
    std::printf("%d inputs\n", inputs);
    return inputs > 0 ? 0 : 2;
}
