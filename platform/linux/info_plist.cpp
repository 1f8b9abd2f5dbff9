#include "info_plist.h"

#include <fcntl.h>
#include <plist/plist.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>

#include "info_plist_guard.h"
#include "unique_fd.h"

namespace {

constexpr size_t kLargestFile = size_t{1} << 20;

struct PlistDeleter {
    void operator()(void* node) const { plist_free(node); }
};
using PlistOwner = std::unique_ptr<void, PlistDeleter>;

struct FreeDeleter {
    void operator()(void* block) const { std::free(block); }
};

UniqueFd openForReading(const std::string& path) {
    int fd = -1;
    do {
        fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    } while (fd < 0 && errno == EINTR);
    return UniqueFd(fd);
}

// Everything from `fd`, or nothing when it is no regular file, too long, or not readable to its end. The limit is kept
// while reading too, since a file may grow after it was measured.
std::optional<std::string> readRegularFile(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    if (status.st_size < 0 || static_cast<uint64_t>(status.st_size) > kLargestFile) return std::nullopt;
    std::string content(static_cast<size_t>(status.st_size) + 1, '\0');
    size_t length = 0;
    for (;;) {
        if (length == content.size()) {
            if (length > kLargestFile) return std::nullopt;
            content.resize(length * 2);
        }
        const ssize_t got = read(fd, content.data() + length, content.size() - length);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::nullopt;
        if (got == 0) break;
        length += static_cast<size_t>(got);
    }
    if (length > kLargestFile) return std::nullopt;
    content.resize(length);
    return content;
}

// The library does not look whether it was given the memory that it asked for. So a little more than the largest tree
// of such a text has to be there the moment before.
void needMemoryForTree(size_t textSize) {
    constexpr size_t kBytesPerByte = 64;
    constexpr size_t kBytesAtLeast = 65536;
    ::operator delete(::operator new(textSize* kBytesPerByte + kBytesAtLeast));
}

PlistOwner parseTree(std::string_view content) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";  // some editors begin a text with it
    if (content.starts_with(kByteOrderMark)) content.remove_prefix(kByteOrderMark.size());
    needMemoryForTree(content.size());
    plist_t root = nullptr;
    const auto length = static_cast<uint32_t>(content.size());
    if (info_plist_guard::isBinary(content)) {
        if (!info_plist_guard::binaryIsHarmless(content)) return nullptr;
        plist_from_bin(content.data(), length, &root);
    } else {
        if (!info_plist_guard::xmlIsHarmless(content)) return nullptr;
        plist_from_xml(content.data(), length, &root);
    }
    return PlistOwner(root);
}

}  // namespace

InfoPlist InfoPlist::parse(const std::string& content) {
    InfoPlist result;
    if (content.empty() || content.size() > kLargestFile) return result;
    const PlistOwner root = parseTree(content);
    if (root == nullptr || plist_get_node_type(root.get()) != PLIST_DICT) return result;

    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(root.get(), &iterator);
    const std::unique_ptr<void, FreeDeleter> iteratorOwner(iterator);
    while (iterator != nullptr) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(root.get(), iterator, &key, &value);
        const std::unique_ptr<char, FreeDeleter> keyOwner(key);
        if (key == nullptr || value == nullptr) break;
        if (plist_get_node_type(value) != PLIST_STRING) continue;
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(value, &length);
        if (text != nullptr) result.texts_.emplace_back(key, text);
    }
    return result;
}

InfoPlist InfoPlist::ofBundle(const std::string& bundlePath) {
    UniqueFd file = openForReading(bundlePath + "/Contents/Info.plist");
    if (!file && (errno == ENOENT || errno == ENOTDIR)) file = openForReading(bundlePath + "/Info.plist");
    if (!file) return {};
    const std::optional<std::string> content = readRegularFile(file.get());
    if (!content) return {};
    return parse(*content);
}

const std::string* InfoPlist::text(std::string_view key) const {
    for (const auto& [name, value] : texts_) {
        if (name == key) return &value;
    }
    return nullptr;
}
