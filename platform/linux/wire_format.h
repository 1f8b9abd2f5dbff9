// The frame in which a message crosses a socket: numbers and offsets only. docs/wire-format.md tells it with an
// example.
//
// A frame is a header and then its entries, each part padded with zero bytes to a multiple of eight, so that every
// value in a frame that starts aligned is aligned too. Numbers have the machine's own byte order: both ends are
// processes of one machine. One writer (Dictionary) and one reader (wire::check); only the reader checks bounds.
//
// These numbers are shared with programs built at another time: a change needs a new `version`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace wire {

constexpr uint8_t version = 1;

// Above any message of ours by orders of magnitude; they bound what one peer can make the other hold.
constexpr size_t maxFrameBytes = size_t{4} << 20;
constexpr size_t maxEntries = 256;
constexpr size_t maxDescriptors = 16;
constexpr size_t maxKeyBytes = 1024;  // without the terminator

enum class Kind : uint8_t {
    Message = 1,  // wants no answer; id 0
    Request = 2,  // wants an answer under the same id, which is not 0
    Reply = 3,    // answers the request of that id
};

enum class Type : uint8_t {
    Hole = 0,  // a replaced value; in memory only, never sent
    Bool = 1,
    Int64 = 2,
    UInt64 = 3,
    Double = 4,
    Date = 5,
    Data = 6,
    Uuid = 7,
    String = 8,
    Descriptor = 9,
};

struct FrameHeader {
    uint32_t length;  // of the whole frame in bytes, this header included
    uint8_t version;
    uint8_t kind;
    uint16_t descriptors;  // how many descriptors travel with the frame
    uint64_t id;
    uint32_t entries;
    uint32_t reserved;  // 0
};
static_assert(sizeof(FrameHeader) == 24);

/// Followed by the key with its terminator, padded, and the value, padded.
struct EntryHeader {
    uint32_t valueBytes;  // without padding; a string's include its terminator
    uint16_t keyBytes;    // with the terminator, without padding
    uint8_t type;
    uint8_t reserved;  // 0
};
static_assert(sizeof(EntryHeader) == 8);

constexpr size_t padded(size_t bytes) {
    return (bytes + 7) & ~size_t{7};
}

constexpr size_t entryBytes(size_t keyBytes, size_t valueBytes) {
    return sizeof(EntryHeader) + padded(keyBytes) + padded(valueBytes);
}

template <typename Value>
Value load(const unsigned char* from) {
    Value value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <typename Value>
void store(unsigned char* to, const Value& value) {
    std::memcpy(to, &value, sizeof value);
}

/// A view of an entry that is known to be whole: in a frame that passed wire::check, or written by this process.
class Entry {
  public:
    explicit Entry(unsigned char* start) : start_(start), header_(load<EntryHeader>(start)) {}

    [[nodiscard]] Type type() const { return static_cast<Type>(header_.type); }
    [[nodiscard]] const char* key() const { return reinterpret_cast<const char*>(start_ + sizeof(EntryHeader)); }
    [[nodiscard]] size_t keyBytes() const { return header_.keyBytes; }
    [[nodiscard]] unsigned char* value() const { return start_ + sizeof(EntryHeader) + padded(header_.keyBytes); }
    [[nodiscard]] size_t valueBytes() const { return header_.valueBytes; }
    [[nodiscard]] unsigned char* start() const { return start_; }
    [[nodiscard]] size_t bytes() const { return entryBytes(header_.keyBytes, header_.valueBytes); }

  private:
    unsigned char* start_;
    EntryHeader header_;
};

/// A key that entries are compared with. Its length and last letters, by which the keys of a vocabulary differ sooner
/// than by their first, are looked at before the rest.
class Key {
  public:
    /// `bytes` with the terminator, at least 1; the text outlives the key.
    Key(const char* text, size_t bytes) : text_(text), bytes_(bytes), tail_(tailOf(text, bytes)) {}
    explicit Key(const Entry& entry) : Key(entry.key(), entry.keyBytes()) {}

    [[nodiscard]] const char* text() const { return text_; }
    [[nodiscard]] size_t bytes() const { return bytes_; }
    [[nodiscard]] bool isOf(const Entry& entry) const {
        if (entry.keyBytes() != bytes_ || tailOf(entry.key(), bytes_) != tail_) return false;
        for (size_t at = 0; at + sizeof tail_ < bytes_; at += sizeof tail_) {
            if (loadWord(entry.key() + at) != loadWord(text_ + at)) return false;
        }
        return true;
    }

    /// Keys that differ mostly have different slots.
    [[nodiscard]] size_t slot() const {
        constexpr uint64_t mixer = 0x9E3779B97F4A7C15;  // 2 to the 64th over the golden ratio: Fibonacci hashing
        return static_cast<size_t>(((tail_ + bytes_) * mixer) >> (64 - slotBits));
    }
    static constexpr unsigned slotBits = 6;
    static constexpr size_t slots = size_t{1} << slotBits;

  private:
    static uint64_t loadWord(const char* text) { return load<uint64_t>(reinterpret_cast<const unsigned char*>(text)); }

    /// The last eight bytes, or as many as there are.
    static uint64_t tailOf(const char* text, size_t bytes) {
        if (bytes >= sizeof(uint64_t)) return loadWord(text + bytes - sizeof(uint64_t));
        uint64_t tail = 0;
        for (size_t i = 0; i < bytes; ++i) tail = tail << 8 | static_cast<unsigned char>(text[i]);
        return tail;
    }

    const char* text_;
    size_t bytes_;
    uint64_t tail_;
};

}  // namespace wire
