// A pattern, a line feed, and a name: matched as by the table that tries every start of every '*'.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/LFile.h"
#include "tests/base/charsets_reference.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 1000) return 0;  // the table has pattern times name entries
    const std::string input(std::string(data, data + size).c_str());
    const std::string pattern = input.substr(0, input.find('\n'));
    const std::string name = pattern.size() < input.size() ? input.substr(pattern.size() + 1) : "";
    if (LFile::IsMatch(pattern.c_str(), name.c_str()) != reference::isMatch(pattern, name)) std::abort();
    return 0;
}
