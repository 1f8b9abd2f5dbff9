#include <cmath>
#include <memory>

#include "platform/linux/wire_reader.h"
#include "platform/linux/xpc_dictionary.h"
#include "tests/platform/xpc_support.h"

using wire::FrameHeader;
using wire::Type;

namespace {

const unsigned char uuid[16] = {1, 2, 3, 0, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

/// The nine types: how a value is stored, and whether its reader finds it.
struct TypeRow {
    const char* name;
    std::function<void(xpc_object_t, const char*)> store;
    std::function<bool(xpc_object_t, const char*)> finds;    // reads the stored value
    std::function<bool(xpc_object_t, const char*)> neutral;  // reads the neutral result
};

bool dupFindsFile(xpc_object_t dictionary, const char* key) {
    const UniqueFd copy(xpc_dictionary_dup_fd(dictionary, key));
    return copy && (fcntl(copy.get(), F_GETFD) & FD_CLOEXEC) != 0;
}

bool dataIs(xpc_object_t dictionary, const char* key, const char* expected, size_t bytes) {
    size_t length = 99;
    const void* data = xpc_dictionary_get_data(dictionary, key, &length);
    return length == bytes && (expected == nullptr ? data == nullptr : std::memcmp(data, expected, bytes) == 0);
}

std::vector<TypeRow> typeRows() {
    return {
        {"bool", [](auto d, auto k) { xpc_dictionary_set_bool(d, k, true); },
         [](auto d, auto k) { return xpc_dictionary_get_bool(d, k); },
         [](auto d, auto k) { return !xpc_dictionary_get_bool(d, k); }},
        {"int64", [](auto d, auto k) { xpc_dictionary_set_int64(d, k, INT64_MIN); },
         [](auto d, auto k) { return xpc_dictionary_get_int64(d, k) == INT64_MIN; },
         [](auto d, auto k) { return xpc_dictionary_get_int64(d, k) == 0; }},
        {"uint64", [](auto d, auto k) { xpc_dictionary_set_uint64(d, k, UINT64_MAX); },
         [](auto d, auto k) { return xpc_dictionary_get_uint64(d, k) == UINT64_MAX; },
         [](auto d, auto k) { return xpc_dictionary_get_uint64(d, k) == 0; }},
        {"double", [](auto d, auto k) { xpc_dictionary_set_double(d, k, std::nan("")); },
         [](auto d, auto k) { return std::isnan(xpc_dictionary_get_double(d, k)); },
         [](auto d, auto k) { return xpc_dictionary_get_double(d, k) == 0.0; }},
        {"date", [](auto d, auto k) { xpc_dictionary_set_date(d, k, -5); },
         [](auto d, auto k) { return xpc_dictionary_get_date(d, k) == -5; },
         [](auto d, auto k) { return xpc_dictionary_get_date(d, k) == 0; }},
        {"data", [](auto d, auto k) { xpc_dictionary_set_data(d, k, "a\0b", 3); },
         [](auto d, auto k) { return dataIs(d, k, "a\0b", 3); },
         [](auto d, auto k) { return dataIs(d, k, nullptr, 0); }},
        {"uuid", [](auto d, auto k) { xpc_dictionary_set_uuid(d, k, uuid); },
         [](auto d, auto k) { return std::memcmp(xpc_dictionary_get_uuid(d, k), uuid, 16) == 0; },
         [](auto d, auto k) { return xpc_dictionary_get_uuid(d, k) == nullptr; }},
        {"string", [](auto d, auto k) { xpc_dictionary_set_string(d, k, "text"); },
         [](auto d, auto k) { return std::strcmp(xpc_dictionary_get_string(d, k), "text") == 0; },
         [](auto d, auto k) { return xpc_dictionary_get_string(d, k) == nullptr; }},
        {"fd", [](auto d, auto k) { xpc_dictionary_set_fd(d, k, STDERR_FILENO); }, dupFindsFile,
         [](auto d, auto k) { return xpc_dictionary_dup_fd(d, k) == -1; }},
    };
}

Held empty() {
    return Held(xpc_dictionary_create(nullptr, nullptr, 0));
}

/// What a receiver gets when `sent` is sent with descriptors, without a socket between.
Held travelled(xpc_object_t sent) {
    auto gathered = std::make_unique<transport::Gathered>();
    static_cast<transport::Dictionary*>(sent)->gather(wire::Kind::Message, 0, gathered.get());
    Bytes bytes;
    for (size_t i = 0; i < gathered->pieceCount; ++i) {
        bytes.append(static_cast<char*>(gathered->pieces[i].iov_base), gathered->pieces[i].iov_len);
    }
    const auto* start = reinterpret_cast<const unsigned char*>(bytes.data());
    EXPECT_EQ(bytes.size(), gathered->bytes);
    EXPECT_TRUE(wire::check(start, bytes.size()));
    std::vector<int> passed;
    for (size_t i = 0; i < gathered->descriptorCount; ++i) passed.push_back(dup(gathered->descriptors[i]));
    return Held(transport::Dictionary::receive(start, bytes.size(), passed.data(), {}, 0));
}

/// Every value is read by its own reader only, whatever the key held before, here and after a journey.
TEST(Dictionary, ReadersAndReplacements) {
    const size_t before = openDescriptors();
    const auto rows = typeRows();
    for (const TypeRow& first : rows) {
        for (const TypeRow& second : rows) {
            SCOPED_TRACE(std::string(first.name) + " then " + second.name);
            Held dictionary = empty();
            xpc_dictionary_set_int64(dictionary, "other", 1);
            first.store(dictionary, "key");
            second.store(dictionary, "key");
            const Held received = travelled(dictionary);
            for (const xpc_object_t each :
                 {static_cast<xpc_object_t>(dictionary), static_cast<xpc_object_t>(received)}) {
                EXPECT_EQ(xpc_dictionary_get_count(each), 2U);
                EXPECT_NE(xpc_dictionary_get_value(each, "key"), nullptr);
                EXPECT_EQ(xpc_dictionary_get_value(each, "Key"), nullptr);
                for (const TypeRow& reader : rows) {
                    const bool own = &reader == &second;
                    EXPECT_TRUE((own ? reader.finds : reader.neutral)(each, "key")) << reader.name;
                    EXPECT_TRUE(reader.neutral(each, "missing")) << reader.name;
                }
            }
        }
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Dictionary, StoresNothingForNothing) {
    Held dictionary = empty();
    xpc_dictionary_set_string(dictionary, "a", nullptr);
    xpc_dictionary_set_uuid(dictionary, "a", nullptr);
    xpc_dictionary_set_data(dictionary, "a", nullptr, 3);
    xpc_dictionary_set_fd(dictionary, "a", -1);
    xpc_dictionary_set_int64(dictionary, nullptr, 3);
    EXPECT_EQ(xpc_dictionary_get_count(dictionary), 0U);
    xpc_dictionary_set_data(dictionary, "a", nullptr, 0);
    xpc_dictionary_set_string(dictionary, "", "an empty key is a key");
    EXPECT_EQ(xpc_dictionary_get_count(travelled(dictionary)), 2U);
    EXPECT_EQ(xpc_dictionary_create_reply(dictionary), nullptr);
    EXPECT_EQ(xpc_dictionary_get_remote_connection(dictionary), nullptr);
    EXPECT_EQ(xpc_dictionary_get_int64(XPC_ERROR_CONNECTION_INVALID, "a"), 0);
    EXPECT_EQ(xpc_dictionary_get_remote_connection(XPC_ERROR_CONNECTION_INVALID), nullptr);
}

/// Addresses stay while the dictionary grows past its first block, and a key set over and over does not make it grow.
TEST(Dictionary, GrowsInPlace) {
    Held dictionary = empty();
    std::vector<std::pair<std::string, const char*>> stored;
    for (size_t i = 0; i < 200; ++i) {
        const std::string key = "key" + std::to_string(i);
        const std::string value(i * 3, static_cast<char>('a' + i % 26));
        xpc_dictionary_set_string(dictionary, key.c_str(), value.c_str());
        stored.emplace_back(value, xpc_dictionary_get_string(dictionary, key.c_str()));
    }
    for (size_t round = 0; round < 1000; ++round) {
        xpc_dictionary_set_string(dictionary, "again", std::string(round * 7 % 9000, 'x').c_str());
        xpc_dictionary_set_string(dictionary, "key7", std::string(round % 40, 'y').c_str());
    }
    xpc_dictionary_set_string(dictionary, "key9", xpc_dictionary_get_string(dictionary, "key8"));
    const Held received = travelled(dictionary);
    EXPECT_EQ(xpc_dictionary_get_count(received), 201U);
    for (size_t i = 10; i < stored.size(); ++i) {
        EXPECT_EQ(stored[i].first, stored[i].second);
        EXPECT_EQ(stored[i].first, xpc_dictionary_get_string(received, ("key" + std::to_string(i)).c_str()));
    }
    EXPECT_EQ(std::string(24, 'i'), xpc_dictionary_get_string(received, "key9"));
}

// ---- Frames from elsewhere

bool accepts(const Bytes& bytes) {
    const Bytes exact(bytes);  // its own block, so that a read past the end is seen
    size_t length = 0;
    const auto* start = reinterpret_cast<const unsigned char*>(exact.data());
    return wire::measure(start, exact.size(), &length) == wire::Verdict::Complete && length == exact.size() &&
           wire::check(start, length);
}

Bytes changed(Bytes bytes, size_t at, char to) {
    bytes[at] = to;
    return bytes;
}

Bytes manyEntries(uint32_t count) {
    Bytes entries;
    for (uint32_t i = 0; i < count; ++i) entries += entry(text(std::to_string(i).c_str()), Type::Bool, raw<char>(1));
    return frame(entries, count);
}

TEST(Frame, GoodAndRefused) {
    const Bytes flag = entry(text("k"), Type::Bool, raw<char>(1));
    const Bytes word = entry(text("k"), Type::String, text("word"));
    const Bytes number = entry(text("n"), Type::Int64, raw<int64_t>(5));
    const Bytes fd = entry(text("f"), Type::Descriptor, raw<int32_t>(9));
    const size_t first = sizeof(FrameHeader);
    const struct {
        const char* what;
        Bytes bytes;
        bool good;
    } rows[] = {
        {"empty", frame("", 0), true},
        {"several types", frame(word + number, 2), true},
        {"request", frame(flag, 1, {0, 1, 2, 0, 7, 0, 0}), true},
        {"reply", frame(flag, 1, {0, 1, 3, 0, 7, 0, 0}), true},
        {"descriptor", frame(fd, 1, {0, 1, 1, 1, 0, 0, 0}), true},
        {"empty data, empty key", frame(entry(text(""), Type::Data, ""), 1), true},
        {"longest key", frame(entry(text(Bytes(1024, 'k').c_str()), Type::Data, ""), 1), true},
        {"most entries", manyEntries(256), true},
        {"nothing", "", false},
        {"length below a header", changed(frame("", 0), 0, 23), false},
        {"length above the limit", changed(frame("", 0), 3, 1), false},
        {"other version", frame("", 0, {0, 2, 1, 0, 0, 0, 0}), false},
        {"kind 0", frame("", 0, {0, 1, 0, 0, 0, 0, 0}), false},
        {"kind 4", frame("", 0, {0, 1, 4, 0, 1, 0, 0}), false},
        {"message with an id", frame("", 0, {0, 1, 1, 0, 1, 0, 0}), false},
        {"request without an id", frame("", 0, {0, 1, 2, 0, 0, 0, 0}), false},
        {"reserved field", frame("", 0, {0, 1, 1, 0, 0, 0, 1}), false},
        {"descriptor not announced", frame(fd, 1), false},
        {"descriptor announced only", frame("", 0, {0, 1, 1, 1, 0, 0, 0}), false},
        {"17 descriptors", frame("", 0, {0, 1, 1, 17, 0, 0, 0}), false},
        {"too many entries", manyEntries(257), false},
        {"count too high", frame(flag, 2), false},
        {"count too low", frame(flag + number, 1), false},
        {"count far too high", frame(flag, 0xFFFFFFFF), false},
        {"trailing bytes", frame(flag + Bytes(8, '\0'), 1), false},
        {"key twice", frame(flag + word, 2), false},
        {"key twice among many", frame(manyEntries(40).substr(first) + flag + number + word, 43), false},
        {"hole", frame(entry(text("k"), Type::Hole, ""), 1), false},
        {"type 10", frame(entry(text("k"), static_cast<Type>(10), ""), 1), false},
        {"no key", frame(entry("", Type::Data, ""), 1), false},
        {"key too long", frame(entry(text(Bytes(1025, 'k').c_str()), Type::Data, ""), 1), false},
        {"key unterminated", frame(entry("k", Type::Data, ""), 1), false},
        {"key with an inner NUL", frame(entry(Bytes("k\0k\0", 4), Type::Data, ""), 1), false},
        {"string unterminated", frame(entry(text("k"), Type::String, "word"), 1), false},
        {"string with an inner NUL", frame(entry(text("k"), Type::String, Bytes("w\0d\0", 4)), 1), false},
        {"string without bytes", frame(entry(text("k"), Type::String, ""), 1), false},
        {"bool 2", frame(entry(text("k"), Type::Bool, raw<char>(2)), 1), false},
        {"bool of 8 bytes", frame(entry(text("k"), Type::Bool, raw<int64_t>(1)), 1), false},
        {"int64 of 4 bytes", frame(entry(text("k"), Type::Int64, raw<int32_t>(1)), 1), false},
        {"uuid of 15 bytes", frame(entry(text("k"), Type::Uuid, Bytes(15, 'u')), 1), false},
        {"descriptor of 8 bytes", frame(entry(text("k"), Type::Descriptor, raw<int64_t>(1)), 1, {0, 1, 1, 1, 0, 0, 0}),
         false},
        {"padding after the key", changed(frame(flag, 1), first + 8 + 3, 'x'), false},
        {"padding after the value", changed(frame(flag, 1), first + 16 + 3, 'x'), false},
        {"entry's reserved byte", changed(frame(flag, 1), first + 7, 1), false},
        {"value size past the frame", changed(frame(flag, 1), first + 1, 1), false},
        {"value size of 4 GiB", changed(frame(flag, 1), first + 3, '\xFF'), false},
        {"key size past the frame", changed(frame(flag, 1), first + 5, 2), false},
    };
    for (const auto& row : rows) EXPECT_EQ(accepts(row.bytes), row.good) << row.what;
}

/// A local dictionary may exceed what a frame holds; it is told apart when it is sent.
TEST(Frame, LimitsOfALocalDictionary) {
    const struct {
        int entries;
        int descriptors;
        size_t keyBytes;
        size_t dataBytes;
        bool fits;
    } rows[] = {
        {255, 0, 1, 0, true},    {256, 0, 1, 0, false}, {0, 0, 1024, 0, true},         {0, 0, 1025, 0, false},
        {0, 16, 1, 0, true},     {0, 17, 1, 0, false},  {0, 0, 1, 4194304 - 40, true}, {0, 0, 1, 4194304 - 39, false},
        {0, 0, 70000, 0, false},
    };
    for (const auto& row : rows) {
        Held dictionary = empty();
        const Bytes data(row.dataBytes, 'x');
        for (int i = 0; i < row.entries; ++i) xpc_dictionary_set_bool(dictionary, std::to_string(i).c_str(), true);
        for (int i = 0; i < row.descriptors; ++i) xpc_dictionary_set_fd(dictionary, std::to_string(i).c_str(), 2);
        xpc_dictionary_set_data(dictionary, Bytes(row.keyBytes, 'k').c_str(), data.data(), data.size());
        EXPECT_EQ(static_cast<transport::Dictionary*>(static_cast<xpc_object_t>(dictionary))->fitsFrame(), row.fits)
            << &row - rows;
    }
}

}  // namespace
