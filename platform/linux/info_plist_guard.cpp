#include "info_plist_guard.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace info_plist_guard {

namespace {

constexpr int kDeepest = 64;
constexpr size_t kMostNodes = 65536;
constexpr size_t kMostBytes = size_t{8} << 20;

constexpr std::string_view kMagic = "bplist";
constexpr size_t kHeaderSize = 8;
constexpr size_t kTrailerSize = 32;

// Walks the object graph of a binary list as the parser will, spending a budget of nodes and bytes.
class BinaryWalk {
  public:
    explicit BinaryWalk(std::string_view content) : content_(content) {}

    bool run() {
        if (content_.size() < kHeaderSize + kTrailerSize) return false;
        const size_t trailer = content_.size() - kTrailerSize;
        offsetSize_ = byteAt(trailer + 6);
        referenceSize_ = byteAt(trailer + 7);
        if (!sizeIsKnown(offsetSize_) || !sizeIsKnown(referenceSize_)) return false;
        objects_ = number(trailer + 8, 8);
        const uint64_t root = number(trailer + 16, 8);
        table_ = number(trailer + 24, 8);
        if (table_ < kHeaderSize || table_ > trailer) return false;
        if (objects_ == 0 || objects_ > (trailer - table_) / offsetSize_) return false;
        return visit(root, 0);
    }

  private:
    static bool sizeIsKnown(size_t size) { return size >= 1 && size <= 8; }
    [[nodiscard]] uint8_t byteAt(uint64_t at) const { return static_cast<uint8_t>(content_[static_cast<size_t>(at)]); }

    [[nodiscard]] uint64_t number(uint64_t at, size_t size) const {
        uint64_t value = 0;
        for (size_t i = 0; i < size; ++i) value = (value << 8) | byteAt(at + i);
        return value;
    }

    // The count of an object whose marker stands at `at`, which moves to its first byte; nothing when it is cut off.
    std::optional<uint64_t> countAt(uint64_t& at) const {
        const unsigned low = byteAt(at++) & 0x0FU;
        if (low != 0x0F) return low;
        if (at >= table_ || (byteAt(at) & 0xF0U) != 0x10) return std::nullopt;
        const size_t size = size_t{1} << (byteAt(at++) & 0x0FU);
        if (size > 8 || size > table_ - at) return std::nullopt;
        const uint64_t count = number(at, size);
        at += size;
        return count;
    }

    bool spend(uint64_t bytes) {
        if (++nodes_ > kMostNodes || bytes > kMostBytes - bytes_) return false;
        bytes_ += static_cast<size_t>(bytes);
        return true;
    }

    bool visit(uint64_t index, int depth) {
        if (index >= objects_ || depth > kDeepest) return false;
        uint64_t at = number(table_ + index * offsetSize_, offsetSize_);
        if (at < kHeaderSize || at >= table_) return false;
        const unsigned kind = byteAt(at) >> 4;
        if (kind < 4) return spend(0);  // null, boolean, integer, real, date: a few bytes each
        const std::optional<uint64_t> count = countAt(at);
        if (!count || *count > table_ - at) return false;
        const bool isContainer = kind >= 0x0A;
        if (kind == 5) return spend(*count) && isText(at, *count, 1);
        if (kind == 6) return spend(*count * 3) && isText(at, *count, 2);
        if (!isContainer) return spend(*count);
        return spend(0) && visitMembers(at, kind == 0x0D ? *count * 2 : *count, depth);
    }

    // Whether the units of a text are all there and none is 0.
    [[nodiscard]] bool isText(uint64_t at, uint64_t count, size_t unitSize) const {
        if (count > (table_ - at) / unitSize) return false;
        for (uint64_t i = 0; i < count; ++i) {
            if (number(at + i * unitSize, unitSize) == 0) return false;
        }
        return true;
    }

    bool visitMembers(uint64_t at, uint64_t count, int depth) {
        if (count > (table_ - at) / referenceSize_) return false;
        for (uint64_t i = 0; i < count; ++i) {
            if (!visit(number(at + i * referenceSize_, referenceSize_), depth + 1)) return false;
        }
        return true;
    }

    std::string_view content_;
    size_t offsetSize_ = 0;
    size_t referenceSize_ = 0;
    uint64_t objects_ = 0;
    uint64_t table_ = 0;
    size_t nodes_ = 0;
    size_t bytes_ = 0;
};

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

bool isContainerTag(std::string_view name) {
    return startsWith(name, "dict") || startsWith(name, "array");
}

// Length of the comment or character data at the start of `text`, taken as long as any reader could take it; 0 when
// there is none.
size_t hiddenPassage(std::string_view text) {
    constexpr std::string_view kComment = "<!--";
    constexpr std::string_view kData = "<![CDATA[";
    const bool isComment = startsWith(text, kComment);
    if (!isComment && !startsWith(text, kData)) return 0;
    const std::string_view end = isComment ? "-->" : "]]>";
    const size_t found = text.find(end, isComment ? kComment.size() : kData.size());
    return found == std::string_view::npos ? text.size() : found + end.size();
}

// An upper bound of the nesting that a parser can reach, however it reads passages that hide tags: an opening container
// counts everywhere, a closing one only where it surely is one. Whatever could blur that (quotes, instructions or
// declarations in the midst of things) is refused.
class XmlMeasure {
  public:
    // The tag or passage at the start of `text`, which stands at offset `at`. False: refuse the list.
    bool take(size_t at, std::string_view text) {
        if (at < hiddenUntil_) return !isContainerTag(text.substr(1)) || deeper(text);
        if (const size_t hidden = hiddenPassage(text); hidden != 0) {
            hiddenUntil_ = at + hidden;
            return true;
        }
        if (startsWith(text, "<?")) return depth_ == 0;
        const std::string_view tag = text.substr(0, text.find_first_of("<>", 1));
        if (startsWith(text, "<!")) return depth_ == 0 && tag.find('[') == tag.npos;
        const bool isClosing = startsWith(text, "</");
        const bool isContainer = isContainerTag(text.substr(isClosing ? 2 : 1));
        const bool hasQuote = tag.find_first_of("\"'") != tag.npos;
        if (hasQuote && (isContainer || depth_ > 0)) return false;
        if (!isContainer) return true;
        if (!isClosing) return deeper(text);
        if (depth_ > 0) --depth_;
        return true;
    }

  private:
    bool deeper(std::string_view tag) {
        const size_t end = tag.find('>');
        const bool isEmpty = end != tag.npos && tag[end - 1] == '/';
        return isEmpty || ++depth_ <= kDeepest;
    }

    int depth_ = 0;
    size_t hiddenUntil_ = 0;
};

}  // namespace

bool isBinary(std::string_view content) {
    return startsWith(content, kMagic);
}

bool binaryIsHarmless(std::string_view content) {
    return BinaryWalk(content).run();
}

bool xmlIsHarmless(std::string_view content) {
    XmlMeasure measure;
    for (size_t at = content.find('<'); at != content.npos; at = content.find('<', at + 1)) {
        if (!measure.take(at, content.substr(at))) return false;
    }
    return true;
}

}  // namespace info_plist_guard
