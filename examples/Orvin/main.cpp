// Orvin, the example main application. With words it talks to the helper and ends; without, as the helper launches it,
// it appends a line "started PID SECONDS" to the file named by ORVIN_HELLO (by default orvin-hello in the user's data
// folder), stays for ORVIN_STAY seconds (by default 8) and ends.
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include <dispatch/dispatch.h>
#include <platform_ending.h>
#include <unistd.h>

#include "examples/Orvin/OrvinSession.h"

namespace {

std::string FromEnvironment(const char* name, const std::string& otherwise) {
    const char* const value = std::getenv(name);
    return value == nullptr || *value == '\0' ? otherwise : value;
}

void SayHello() {
    const std::string home = FromEnvironment("HOME", "/nonexistent");
    const std::string data = FromEnvironment("XDG_DATA_HOME", home + "/.local/share");
    std::FILE* const file = std::fopen(FromEnvironment("ORVIN_HELLO", data + "/orvin-hello").c_str(), "a");
    if (file == nullptr) return;
    std::fprintf(file, "started %ld %lld\n", static_cast<long>(getpid()), static_cast<long long>(std::time(nullptr)));
    std::fclose(file);
}

/// ORVIN.app of ORVIN.app/Contents/MacOS/Orvin.
std::string OwnBundle(const char* program) {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::canonical(program, error);
    return error ? std::string() : path.parent_path().parent_path().parent_path().string();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        SayHello();
        AfterSeconds(std::strtod(FromEnvironment("ORVIN_STAY", "8").c_str(), nullptr), [] { platform_exit(0); });
        dispatch_main();
    }
    OrvinSession session(OwnBundle(argv[0]), {argv + 1, argv + argc});
    session.Start();
    dispatch_main();
}
