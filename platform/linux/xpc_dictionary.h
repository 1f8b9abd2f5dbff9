// A dictionary is a frame: its entries lie in memory as they travel, so that sending copies nothing and receiving is
// one allocation whose values are read in place.
//
// The object and its first chunk, which begins with the frame's header, are one block. A dictionary that outgrows it
// chains further chunks: a stored value never moves, which keeps the addresses that getters returned valid. A replaced
// value of another size leaves a hole in its chunk, and holes are skipped when the frame is sent.
//
// Limits of the wire are no limits of a local dictionary; one that breaks them is told apart by `fitsFrame` when it is
// sent. A dictionary belongs to one thread at a time.
#pragma once

#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/linux/runtime.h"
#include "platform/linux/wire_format.h"
#include "platform/linux/xpc_connection.h"

namespace transport {

/// The pieces of one frame, and the descriptors that go with it; both belong to the dictionary.
struct Gathered {
    std::array<iovec, wire::maxEntries + 1> pieces;
    size_t pieceCount = 0;
    std::array<int, wire::maxDescriptors> descriptors;
    size_t descriptorCount = 0;
    size_t bytes = 0;
};

class Dictionary final : public Object, public runtime::Job {
  public:
    /// Empty, one reference. Throws std::bad_alloc.
    static Dictionary* create();

    /// The message in a frame that passed wire::check, one reference; null when memory is out. Takes over the
    /// descriptors, as many as the header names, unless it returns null.
    static Dictionary* receive(const unsigned char* frame, size_t length, const int* descriptors,
                               Ref<_xpc_connection_s> remote, uint32_t session) noexcept;

    /// See xpc_dictionary_create_reply.
    Dictionary* createReply();

    /// Copies `bytes` bytes at `value` under `key` in place of what the key held. Throws std::bad_alloc, and then the
    /// key holds what it held. A key or value too long for an entry's header is not stored, and the dictionary no
    /// longer fits a frame: better no message than one that lacks a part.
    void set(const char* key, wire::Type type, const void* value, size_t bytes);

    /// Null when the key is missing.
    [[nodiscard]] unsigned char* find(const char* key) const;
    /// The value of `key` when it has this type, else null; `bytes` may be null.
    [[nodiscard]] const unsigned char* find(const char* key, wire::Type type, size_t* bytes) const;
    [[nodiscard]] size_t count() const { return count_; }

    [[nodiscard]] bool fitsFrame() const;
    /// Stamps the header and lists what to send. The dictionary fits a frame.
    void gather(wire::Kind kind, uint64_t id, Gathered* out);

    /// The connection on which the message came, or to which the reply goes; null for any other dictionary.
    [[nodiscard]] _xpc_connection_s* remote() const { return remote_.get(); }
    /// What was received, or Reply for a reply not yet sent.
    [[nodiscard]] wire::Kind kind() const { return kind_; }
    [[nodiscard]] uint64_t id() const { return id_; }
    /// Which of a client's successive connections to its service the message came from: its reply goes nowhere else.
    [[nodiscard]] uint32_t session() const { return session_; }
    /// How much of its connection's allowance of undelivered events and bytes the message takes: what it was when it
    /// came, whatever its handler has changed since.
    [[nodiscard]] uint32_t receivedWeight() const { return receivedWeight_; }
    [[nodiscard]] uint32_t receivedBytes() const { return receivedBytes_; }

  private:
    struct alignas(8) Chunk {
        Chunk* next;
        uint32_t capacity;  // bytes that follow this header
        uint32_t used;
        uint32_t live;  // entries that are no holes
        bool holes;
        unsigned char* bytes() { return reinterpret_cast<unsigned char*>(this + 1); }
    };

    Dictionary() : Object(XPC_TYPE_DICTIONARY), Job(nullptr) {}
    ~Dictionary();
    static Dictionary* allocate(size_t capacity) noexcept;
    void destroy() noexcept override;

    template <typename Visit>
    void forEach(Visit&& visit) const;
    Chunk* roomFor(size_t bytes);
    [[nodiscard]] unsigned char* find(const wire::Key& key) const;
    [[nodiscard]] unsigned char* search(const char* key, size_t keyBytes) const;
    [[nodiscard]] uint16_t placeOf(const unsigned char* start) const;
    void append(const wire::Key& key, wire::Type type, const void* value, size_t bytes);
    void overwrite(const wire::Entry& entry, wire::Type type, const void* value, size_t bytes);
    void remove(const wire::Entry& entry);
    void forgetValue(const wire::Entry& entry);
    void adoptDescriptors(const int* descriptors);
    Chunk* chunkOf(const unsigned char* position) const;
    static void addPieces(Chunk* chunk, Gathered* out);

    uint32_t count_ = 0;
    uint32_t descriptorCount_ = 0;
    size_t bytes_ = sizeof(wire::FrameHeader);  // of the frame as it would be sent
    uint64_t id_ = 0;
    uint32_t session_ = 0;
    uint32_t receivedWeight_ = 0;
    uint32_t receivedBytes_ = 0;
    wire::Kind kind_ = wire::Kind::Message;
    bool wantsReply_ = false;
    bool unsendable_ = false;
    Ref<_xpc_connection_s> remote_;
    Chunk* first_ = nullptr;  // behind the object, in the same block

    // For each slot of keys the place in the first chunk of the entry that was appended last, which usually is the only
    // one: most keys are found, or found missing, without a walk.
    static constexpr size_t placeBytes = 8;
    static constexpr uint16_t nowhere = 0;             // no key of the slot was ever stored; the header is there
    static constexpr uint16_t elsewhere = UINT16_MAX;  // further on, in another chunk, or no longer there
    std::array<uint16_t, wire::Key::slots> places_{};
};

// What every getter and setter begins with, in the header so that it becomes part of them.

inline unsigned char* Dictionary::find(const wire::Key& key) const {
    const uint16_t place = places_[key.slot()];
    if (place == nowhere) return nullptr;
    if (place != elsewhere) {
        unsigned char* const start = first_->bytes() + place * placeBytes;
        if (key.isOf(wire::Entry(start))) return start;
    }
    return search(key.text(), key.bytes());
}

inline unsigned char* Dictionary::find(const char* key) const {
    return key == nullptr ? nullptr : find(wire::Key(key, std::strlen(key) + 1));
}

inline const unsigned char* Dictionary::find(const char* key, wire::Type type, size_t* bytes) const {
    unsigned char* start = find(key);
    if (start == nullptr) return nullptr;
    const wire::Entry entry(start);
    if (entry.type() != type) return nullptr;
    if (bytes != nullptr) *bytes = entry.valueBytes();
    return entry.value();
}

}  // namespace transport
