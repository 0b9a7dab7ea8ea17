// Runs inputs through a fuzz target once each, where there is no libFuzzer: the seed corpus as
// an ordinary test of every build. Arguments are files or directories of files; a target that
// finds a fault aborts, which fails the run.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputsOf(int argc, char** argv) {
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        fs::path argument = fs::u8path(argv[i]);
        if (fs::is_directory(argument)) {
            for (const fs::directory_entry& entry : fs::directory_iterator(argument)) {
                if (entry.is_regular_file()) {
                    inputs.push_back(entry.path());
                }
            }
        } else {
            inputs.push_back(argument);
        }
    }
    // A fixed order, so that a failure repeats the same way.
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

std::string display(const fs::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<fs::path> inputs = inputsOf(argc, argv);
    if (inputs.empty()) {
        std::fprintf(stderr, "no inputs: give corpus files or directories\n");
        return 1;
    }
    for (const fs::path& input : inputs) {
        std::ifstream in(input, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "cannot read %s\n", display(input).c_str());
            return 1;
        }
        const std::string bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
        std::fprintf(stderr, "running %s (%zu bytes)\n", display(input).c_str(), bytes.size());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::fprintf(stderr, "ran %zu inputs\n", inputs.size());
    return 0;
}
