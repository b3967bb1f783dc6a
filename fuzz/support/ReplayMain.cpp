// Runs a fuzzer's LLVMFuzzerTestOneInput over saved inputs, without
// libFuzzer: the corpora are replayed this way in CI, by compilers that have
// no fuzzing engine. Arguments are files or folders (read recursively, in
// name order); a crash or a sanitizer report fails the run, as it would
// under the fuzzer.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        const fs::path path(argv[i]);
        std::error_code error;
        if (fs::is_directory(path, error)) {
            for (const auto& entry : fs::recursive_directory_iterator(path, error)) {
                if (entry.is_regular_file()) {
                    files.push_back(entry.path());
                }
            }
        } else if (fs::is_regular_file(path, error)) {
            files.push_back(path);
        } else {
            std::fprintf(stderr, "replay: no such file or folder: %s\n", argv[i]);
            return 2;
        }
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
        // A copy of exactly the input's size, so a read past its end is seen
        // by the sanitizers the replay may be built with.
        std::vector<uint8_t> copy(bytes.begin(), bytes.end());
        LLVMFuzzerTestOneInput(copy.empty() ? nullptr : copy.data(), copy.size());
    }
    std::printf("replay: %zu inputs, no crash\n", files.size());
    return files.empty() ? 1 : 0;
}
