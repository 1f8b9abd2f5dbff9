// Bundles: a directory and the texts of its information dictionary, read once when the object is made.
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "cf_encodings.h"
#include "cf_object.h"
#include "file_status.h"
#include "info_plist.h"

struct __CFBundle final : CFObject {
    /// Key and value; the bundle owns its values, since they are handed out borrowed.
    std::vector<std::pair<std::u16string, std::unique_ptr<__CFString>>> values;
};

namespace {

bool isDirectory(const std::string& path) {
    struct stat status {};
    return statFile(path, status) && S_ISDIR(status.st_mode);
}

void addValue(__CFBundle& bundle, const std::string& key, const std::string& value) {
    std::u16string keyUnits;
    std::u16string valueUnits;
    if (!cf_encodings::decode(key, kCFStringEncodingUTF8, keyUnits)) return;
    if (!cf_encodings::decode(value, kCFStringEncodingUTF8, valueUnits)) return;
    bundle.values.emplace_back(std::move(keyUnits), std::make_unique<__CFString>(std::move(valueUnits)));
}

}  // namespace

CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef url) {
    if (url == nullptr || !isDirectory(url->path)) return nullptr;
    try {
        auto bundle = std::make_unique<__CFBundle>();
        const InfoPlist plist = InfoPlist::ofBundle(url->path);
        for (const auto& [key, value] : plist.texts()) addValue(*bundle, key, value);
        return bundle.release();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key) {
    for (const auto& [name, value] : bundle->values) {
        if (name == key->units) return static_cast<const CFObject*>(value.get());
    }
    return nullptr;
}
