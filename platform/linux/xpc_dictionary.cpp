#include "platform/linux/xpc_dictionary.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace transport {

namespace {

constexpr size_t firstChunkBytes = 768;  // a request of ours with three texts of usual length fits
constexpr size_t nextChunkBytes = 4096;
constexpr size_t maxStoredKeyBytes = UINT16_MAX;
constexpr size_t maxStoredValueBytes = size_t{1} << 30;
constexpr uint32_t descriptorWeight = 16;  // undelivered descriptors are dearer than bytes: few of them fill a process

/// Copies `bytes` bytes to `to` and fills up with zeros to a multiple of eight.
void putPadded(unsigned char* to, const void* from, size_t bytes) {
    if (bytes == 0) return;
    if (bytes == sizeof(uint64_t)) {  // any number; without a call
        std::memcpy(to, from, sizeof(uint64_t));
        return;
    }
    wire::store(to + wire::padded(bytes) - sizeof(uint64_t), uint64_t{0});
    std::memcpy(to, from, bytes);
}

}  // namespace

Dictionary* Dictionary::allocate(size_t capacity) noexcept {
    constexpr size_t chunkOffset = wire::padded(sizeof(Dictionary));
    void* block = std::malloc(chunkOffset + sizeof(Chunk) + capacity);
    if (block == nullptr) return nullptr;
    auto* dictionary = new (block) Dictionary;
    void* behind = static_cast<unsigned char*>(block) + chunkOffset;
    dictionary->first_ = new (behind) Chunk{nullptr, static_cast<uint32_t>(capacity), 0, 0, false};
    return dictionary;
}

Dictionary* Dictionary::create() {
    Dictionary* dictionary = allocate(firstChunkBytes);
    if (dictionary == nullptr) throw std::bad_alloc();
    dictionary->first_->used = sizeof(wire::FrameHeader);
    return dictionary;
}

Dictionary* Dictionary::receive(const unsigned char* frame, size_t length, const int* descriptors,
                                Ref<_xpc_connection_s> remote, uint32_t session) noexcept {
    Dictionary* message = allocate(length);
    if (message == nullptr) return nullptr;
    const auto header = wire::load<wire::FrameHeader>(frame);
    std::memcpy(message->first_->bytes(), frame, length);
    message->first_->used = static_cast<uint32_t>(length);
    message->first_->live = header.entries;
    message->count_ = header.entries;
    message->descriptorCount_ = header.descriptors;
    message->bytes_ = length;
    message->id_ = header.id;
    message->session_ = session;
    message->receivedWeight_ = 1 + descriptorWeight * header.descriptors;
    message->receivedBytes_ = header.length;
    message->kind_ = static_cast<wire::Kind>(header.kind);
    message->wantsReply_ = message->kind_ == wire::Kind::Request;
    message->remote_ = std::move(remote);
    message->forEach([message](const wire::Entry& entry) {
        message->places_[wire::Key(entry).slot()] = message->placeOf(entry.start());
        return true;
    });
    if (header.descriptors > 0) message->adoptDescriptors(descriptors);
    return message;
}

Dictionary* Dictionary::createReply() {
    if (!wantsReply_) return nullptr;
    Dictionary* reply = create();
    wantsReply_ = false;
    reply->kind_ = wire::Kind::Reply;
    reply->id_ = id_;
    reply->session_ = session_;
    reply->remote_ = Ref<_xpc_connection_s>::share(remote_.get());
    return reply;
}

Dictionary::~Dictionary() {
    if (descriptorCount_ > 0) forEach([this](const wire::Entry& entry) { return forgetValue(entry), true; });
    for (Chunk* chunk = first_->next; chunk != nullptr;) std::free(std::exchange(chunk, chunk->next));
}

void Dictionary::destroy() noexcept {
    this->~Dictionary();
    std::free(static_cast<void*>(this));
}

/// Calls `visit` with every entry that is no hole, until it returns false.
template <typename Visit>
void Dictionary::forEach(Visit&& visit) const {
    size_t skip = sizeof(wire::FrameHeader);
    for (Chunk* chunk = first_; chunk != nullptr; chunk = chunk->next) {
        unsigned char* const end = chunk->bytes() + chunk->used;
        for (unsigned char* at = chunk->bytes() + std::exchange(skip, 0); at < end;) {
            const wire::Entry entry(at);
            if (entry.type() != wire::Type::Hole && !visit(entry)) return;
            at += entry.bytes();
        }
    }
}

/// The walk, for keys whose slot tells nothing.
unsigned char* Dictionary::search(const char* key, size_t keyBytes) const {
    const wire::Key sought(key, keyBytes);
    unsigned char* found = nullptr;
    forEach([&](const wire::Entry& entry) {
        if (!sought.isOf(entry)) return true;
        found = entry.start();
        return false;
    });
    return found;
}

/// Where in the first chunk the entry at `start` begins; `elsewhere` when it is in another, or too far on.
uint16_t Dictionary::placeOf(const unsigned char* start) const {
    const uintptr_t place =
        (reinterpret_cast<uintptr_t>(start) - reinterpret_cast<uintptr_t>(first_->bytes())) / placeBytes;
    return place < elsewhere && place * placeBytes < first_->capacity ? static_cast<uint16_t>(place) : elsewhere;
}

Dictionary::Chunk* Dictionary::roomFor(size_t bytes) {
    Chunk* chunk = first_;
    for (;; chunk = chunk->next) {
        if (chunk->capacity - chunk->used >= bytes) return chunk;
        if (chunk->next == nullptr) break;
    }
    const size_t capacity = bytes > nextChunkBytes ? bytes : nextChunkBytes;
    void* block = std::malloc(sizeof(Chunk) + capacity);
    if (block == nullptr) throw std::bad_alloc();
    chunk->next = new (block) Chunk{nullptr, static_cast<uint32_t>(capacity), 0, 0, false};
    return chunk->next;
}

inline void Dictionary::append(const wire::Key& key, wire::Type type, const void* value, size_t bytes) {
    const size_t total = wire::entryBytes(key.bytes(), bytes);
    Chunk* chunk = roomFor(total);
    unsigned char* start = chunk->bytes() + chunk->used;
    wire::store(start, wire::EntryHeader{static_cast<uint32_t>(bytes), static_cast<uint16_t>(key.bytes()),
                                         static_cast<uint8_t>(type), 0});
    unsigned char* keyStart = start + sizeof(wire::EntryHeader);
    putPadded(keyStart, key.text(), key.bytes());
    putPadded(keyStart + wire::padded(key.bytes()), value, bytes);
    places_[key.slot()] = placeOf(start);
    chunk->used += static_cast<uint32_t>(total);
    ++chunk->live;
    ++count_;
    bytes_ += total;
    if (type == wire::Type::Descriptor) ++descriptorCount_;
}

void Dictionary::set(const char* key, wire::Type type, const void* value, size_t bytes) {
    const size_t keyBytes = std::strlen(key) + 1;
    if (keyBytes > maxStoredKeyBytes || bytes > maxStoredValueBytes) {
        unsendable_ = true;
        return;
    }
    const wire::Key sought(key, keyBytes);
    unsigned char* old = find(sought);
    if (old != nullptr && wire::padded(wire::Entry(old).valueBytes()) == wire::padded(bytes)) {
        overwrite(wire::Entry(old), type, value, bytes);
        return;
    }
    // The old value goes last: the new one may be a copy of it, and memory may be out.
    append(sought, type, value, bytes);
    if (old != nullptr) remove(wire::Entry(old));
}

void Dictionary::overwrite(const wire::Entry& entry, wire::Type type, const void* value, size_t bytes) {
    forgetValue(entry);
    wire::store(entry.start(), wire::EntryHeader{static_cast<uint32_t>(bytes), static_cast<uint16_t>(entry.keyBytes()),
                                                 static_cast<uint8_t>(type), 0});
    if (bytes > 0) std::memmove(entry.value(), value, bytes);
    std::memset(entry.value() + bytes, 0, wire::padded(bytes) - bytes);
    if (type == wire::Type::Descriptor) ++descriptorCount_;
}

/// Closes the descriptor that the entry owns, if it owns one.
void Dictionary::forgetValue(const wire::Entry& entry) {
    if (entry.type() != wire::Type::Descriptor) return;
    ::close(wire::load<int32_t>(entry.value()));
    --descriptorCount_;
}

/// Turns the entry into a hole. A chunk that holds nothing else is empty again, so that setting one key over and over
/// does not grow the dictionary.
void Dictionary::remove(const wire::Entry& entry) {
    forgetValue(entry);
    uint16_t& place = places_[wire::Key(entry).slot()];
    if (place == placeOf(entry.start())) place = elsewhere;
    --count_;
    bytes_ -= entry.bytes();
    wire::store(entry.start() + offsetof(wire::EntryHeader, type), static_cast<uint8_t>(wire::Type::Hole));
    Chunk* chunk = chunkOf(entry.start());
    chunk->holes = true;
    if (--chunk->live > 0) return;
    chunk->used = chunk == first_ ? sizeof(wire::FrameHeader) : 0;
    chunk->holes = false;
}

Dictionary::Chunk* Dictionary::chunkOf(const unsigned char* position) const {
    Chunk* chunk = first_;
    while (position < chunk->bytes() || position >= chunk->bytes() + chunk->used) chunk = chunk->next;
    return chunk;
}

/// The sender's numbers in the frame are replaced by ours, in the order of the entries.
void Dictionary::adoptDescriptors(const int* descriptors) {
    forEach([&](const wire::Entry& entry) {
        if (entry.type() == wire::Type::Descriptor) wire::store(entry.value(), static_cast<int32_t>(*descriptors++));
        return true;
    });
}

bool Dictionary::fitsFrame() const {
    if (unsendable_ || count_ > wire::maxEntries || descriptorCount_ > wire::maxDescriptors) return false;
    if (bytes_ > wire::maxFrameBytes) return false;
    bool fits = true;
    forEach([&](const wire::Entry& entry) { return fits = entry.keyBytes() <= wire::maxKeyBytes + 1; });
    return fits;
}

void Dictionary::gather(wire::Kind kind, uint64_t id, Gathered* out) {
    wire::store(first_->bytes(),
                wire::FrameHeader{static_cast<uint32_t>(bytes_), wire::version, static_cast<uint8_t>(kind),
                                  static_cast<uint16_t>(descriptorCount_), id, count_, 0});
    out->bytes = bytes_;
    for (Chunk* chunk = first_; chunk != nullptr; chunk = chunk->next) addPieces(chunk, out);
    if (descriptorCount_ == 0) return;
    forEach([&](const wire::Entry& entry) {
        if (entry.type() == wire::Type::Descriptor) {
            out->descriptors[out->descriptorCount++] = wire::load<int32_t>(entry.value());
        }
        return true;
    });
}

/// One piece for the chunk, or one for each run of entries between its holes.
void Dictionary::addPieces(Chunk* chunk, Gathered* out) {
    unsigned char* const end = chunk->bytes() + chunk->used;
    unsigned char* from = chunk->bytes();
    const auto add = [&](unsigned char* to) {
        if (to > from) out->pieces[out->pieceCount++] = {from, static_cast<size_t>(to - from)};
    };
    if (chunk->holes) {
        const bool isFirst = out->pieceCount == 0;
        for (unsigned char* at = from + (isFirst ? sizeof(wire::FrameHeader) : 0); at < end;) {
            const wire::Entry entry(at);
            if (entry.type() == wire::Type::Hole) {
                add(at);
                from = at + entry.bytes();
            }
            at += entry.bytes();
        }
    }
    add(end);
}

}  // namespace transport
