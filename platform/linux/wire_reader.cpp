#include "platform/linux/wire_reader.h"

#include <array>
#include <string_view>

namespace wire {

namespace {

bool allZero(const unsigned char* from, const unsigned char* to) {
    while (from < to) {
        if (*from++ != 0) return false;
    }
    return true;
}

/// `bytes` bytes at `text` are a text and its only terminator.
bool isText(const unsigned char* text, size_t bytes) {
    return bytes > 0 && std::memchr(text, 0, bytes) == text + bytes - 1;
}

bool valueFits(Type type, const unsigned char* value, size_t bytes) {
    switch (type) {
        case Type::Bool:
            return bytes == 1 && *value <= 1;
        case Type::Int64:
        case Type::UInt64:
        case Type::Double:
        case Type::Date:
            return bytes == 8;
        case Type::Data:
            return true;
        case Type::Uuid:
            return bytes == 16;
        case Type::String:
            return isText(value, bytes);
        case Type::Descriptor:
            return bytes == sizeof(int32_t);
        case Type::Hole:
            break;
    }
    return false;
}

/// The keys met so far, to find a key that comes twice: an open table of positions, small enough for the stack.
class SeenKeys {
  public:
    /// False when `key` was there already.
    bool add(std::string_view key) {
        const size_t mask = slots_.size() - 1;
        size_t slot = std::hash<std::string_view>()(key) & mask;
        while (slots_[slot] != 0) {
            if (keys_[slots_[slot] - 1U] == key) return false;
            slot = (slot + 1) & mask;
        }
        keys_[count_] = key;
        slots_[slot] = static_cast<uint16_t>(++count_);
        return true;
    }

  private:
    std::array<uint16_t, 2 * maxEntries> slots_{};
    std::array<std::string_view, maxEntries> keys_;
    size_t count_ = 0;
};

/// For the usual handful of keys comparing is quicker than a table.
class FewKeys {
  public:
    bool add(std::string_view key) {
        for (size_t i = 0; i < count_; ++i) {
            if (keys_[i] == key) return false;
        }
        keys_[count_++] = key;
        return true;
    }
    static constexpr size_t capacity = 16;

  private:
    std::array<std::string_view, capacity> keys_;
    size_t count_ = 0;
};

/// Takes one entry off the front. False when it is not well-formed.
bool takeEntry(const unsigned char*& at, const unsigned char* end, std::string_view* key, Type* type) {
    const auto left = static_cast<size_t>(end - at);
    if (left < sizeof(EntryHeader)) return false;
    const auto header = load<EntryHeader>(at);
    if (header.reserved != 0 || header.keyBytes == 0 || header.keyBytes > maxKeyBytes + 1) return false;
    if (header.valueBytes > left || entryBytes(header.keyBytes, header.valueBytes) > left) return false;

    const unsigned char* keyStart = at + sizeof(EntryHeader);
    const unsigned char* value = keyStart + padded(header.keyBytes);
    const unsigned char* next = value + padded(header.valueBytes);
    *type = static_cast<Type>(header.type);
    if (!isText(keyStart, header.keyBytes) || !allZero(keyStart + header.keyBytes, value)) return false;
    if (!valueFits(*type, value, header.valueBytes) || !allZero(value + header.valueBytes, next)) return false;
    *key = {reinterpret_cast<const char*>(keyStart), header.keyBytes - size_t{1}};
    at = next;
    return true;
}

bool headerFits(const FrameHeader& header) {
    if (header.version != version || header.reserved != 0) return false;
    if (header.entries > maxEntries || header.descriptors > maxDescriptors) return false;
    switch (static_cast<Kind>(header.kind)) {
        case Kind::Message:
            return header.id == 0;
        case Kind::Request:
        case Kind::Reply:
            return header.id != 0;
    }
    return false;
}

template <typename Keys>
bool checkEntries(const FrameHeader& header, const unsigned char* at, const unsigned char* end) {
    Keys keys;
    size_t descriptors = 0;
    for (uint32_t i = 0; i < header.entries; ++i) {
        std::string_view key;
        Type type{};
        if (!takeEntry(at, end, &key, &type) || !keys.add(key)) return false;
        if (type == Type::Descriptor) ++descriptors;
    }
    return at == end && descriptors == header.descriptors;
}

}  // namespace

Verdict measure(const unsigned char* bytes, size_t available, size_t* length) {
    if (available < sizeof(uint32_t)) return Verdict::Incomplete;
    const size_t claimed = load<uint32_t>(bytes);
    if (claimed < sizeof(FrameHeader) || claimed > maxFrameBytes) return Verdict::Malformed;
    if (claimed > available) return Verdict::Incomplete;
    *length = claimed;
    return Verdict::Complete;
}

bool check(const unsigned char* frame, size_t length) {
    if (length < sizeof(FrameHeader) || length > maxFrameBytes) return false;
    const auto header = load<FrameHeader>(frame);
    if (header.length != length || !headerFits(header)) return false;
    const unsigned char* first = frame + sizeof(FrameHeader);
    if (header.entries <= FewKeys::capacity) return checkEntries<FewKeys>(header, first, frame + length);
    return checkEntries<SeenKeys>(header, first, frame + length);
}

}  // namespace wire
