// What /proc says about a process whose name, arguments and executable are anybody's choice.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/linux/processes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    char state = '\0';
    uint64_t startTime = 0;
    if (processes::parseStat(text, state, startTime) && text.find(std::to_string(startTime)) == text.npos) abort();
    const std::vector<std::string> arguments = processes::scriptCandidates(text);
    if (arguments.size() > 3) abort();
    size_t at = text.find('\0');
    for (const std::string& argument : arguments) {
        if (text.compare(at + 1, argument.size() + 1, argument.c_str(), argument.size() + 1) != 0) abort();
        at += argument.size() + 1;
    }
    const std::string bundle = processes::bundleOfExecutable(text);
    if (!bundle.empty() && (!text.starts_with(bundle + "/Contents/MacOS/") || !bundle.ends_with(".app"))) abort();
    return 0;
}
