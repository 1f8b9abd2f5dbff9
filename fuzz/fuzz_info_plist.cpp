// The information dictionary of a hostile bundle.
#include "platform/linux/info_plist.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const InfoPlist plist = InfoPlist::parse(std::string(reinterpret_cast<const char*>(data), size));
    for (const auto& [key, text] : plist.texts()) {
        if (plist.text(key) == nullptr) abort();
        if (text.size() > size * 3) abort();  // 16-bit units become up to three bytes; nothing else may grow
    }
    return 0;
}
