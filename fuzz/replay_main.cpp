// Stands in for the fuzzer where it is not built in: runs the target over every file of the named corpus folders.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::filesystem::path> FilesOf(const char* folder) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

void Replay(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(stream), {}};
    // An exact copy on the heap, so that the address sanitizer sees a read past its end.
    const std::vector<uint8_t> bytes(input.begin(), input.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    size_t replayed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& file : FilesOf(argv[i])) {
            std::printf("%s\n", file.c_str());
            std::fflush(stdout);
            Replay(file);
            ++replayed;
        }
    }
    if (replayed == 0) std::fprintf(stderr, "no corpus file to replay\n");
    return replayed == 0 ? 1 : 0;
}
