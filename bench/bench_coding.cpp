// Six entries written into a message and read out of it against the thirteen registered keys, without any transport.
//
// "coding" reads the very dictionary that was written. "coding_wire" puts a copy of its bytes in between, checked as
// bytes of another process are. sd-bus does what it needs for a message that it has built itself: append, seal, rewind,
// read. By hand is the least there could be: known entries at known places, copied to a buffer and compared there.
#include <benchmark/benchmark.h>
#include <systemd/sd-bus.h>
#include <xpc/xpc.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "app/LRequestKeys.h"
#include "bench/peers.h"
#include "bench/support.h"
#include "platform/linux/wire_reader.h"
#include "platform/linux/xpc_dictionary.h"
#include "xpc/LXPCDictionary.h"

// ---- Allocations are counted under the C library's own functions, which operator new calls too.

namespace {
std::atomic<uint64_t> allocations{0};

/// One thread allocates while it is measured, so a count without a locked instruction, which would be measured too.
void CountAllocation() {
    allocations.store(allocations.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}
}  // namespace

extern "C" {
void* __libc_malloc(size_t size);                // NOLINT: the library's name
void* __libc_calloc(size_t count, size_t size);  // NOLINT
void* malloc(size_t size) {
    CountAllocation();
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    CountAllocation();
    return __libc_calloc(count, size);
}
}

namespace {

/// What both endpoints hold for good: the items of the sender, the keys of the receiver.
struct Endpoints {
    Endpoints() {
        for (const LXPCData& data : QuestionOfSixEntries()) {
            items.Insert(new LXPCDataListable(data.name, data.type, data.value, data.size));
        }
        for (const LRequestKeyType& key : kRequestKeys) keys.Insert(new LXPCDictionaryKeyListable(key.name, key.type));
    }
    void Read(void* dictionary) {
        LList<LXPCDataListable> result;
        GetXPCDictionary(dictionary, keys, result);
        benchmark::DoNotOptimize(result.head);
    }
    LList<LXPCDataListable> items;
    LList<LXPCDictionaryKeyListable> keys;
};

template <typename Work>
void Counted(benchmark::State& state, Work work) {
    work();
    const uint64_t before = allocations.load();
    for (auto _ : state) work();
    state.counters["allocations"] =
        static_cast<double>(allocations.load() - before) / static_cast<double>(state.iterations());
}

void CodingOurs(benchmark::State& state) {
    Endpoints endpoints;
    Counted(state, [&endpoints] {
        const xpc_object_t dictionary = xpc_dictionary_create(nullptr, nullptr, 0);
        SetXPCDictionary(dictionary, endpoints.items);
        endpoints.Read(dictionary);
        xpc_release(dictionary);
    });
}

/// The frame of `message` in one piece, as a socket would deliver it; returns its length.
size_t CopyFrame(transport::Dictionary& message, unsigned char* to) {
    transport::Gathered gathered;
    message.gather(wire::Kind::Request, 1, &gathered);
    size_t length = 0;
    for (size_t i = 0; i < gathered.pieceCount; ++i) {
        std::memcpy(to + length, gathered.pieces[i].iov_base, gathered.pieces[i].iov_len);
        length += gathered.pieces[i].iov_len;
    }
    return length;
}

void CodingWireOurs(benchmark::State& state) {
    Endpoints endpoints;
    alignas(8) std::array<unsigned char, 4096> frame{};
    size_t length = 0;
    Counted(state, [&] {
        auto* sent = transport::Dictionary::create();
        SetXPCDictionary(static_cast<transport::Object*>(sent), endpoints.items);
        length = CopyFrame(*sent, frame.data());
        xpc_release(static_cast<transport::Object*>(sent));
        if (!wire::check(frame.data(), length)) std::abort();
        auto* received = transport::Dictionary::receive(frame.data(), length, nullptr, {}, 0);
        endpoints.Read(static_cast<transport::Object*>(received));
        xpc_release(static_cast<transport::Object*>(received));
    });
    state.counters["frame_bytes"] = static_cast<double>(length);
}

void CodingBus(benchmark::State& state) {
    StreamPair pair;
    sd_bus* bus = nullptr;
    sd_id128_t id{};
    id.bytes[0] = 1;
    if (sd_bus_new(&bus) < 0 || sd_bus_set_fd(bus, pair.ours, pair.ours) < 0 || sd_bus_set_server(bus, 1, id) < 0 ||
        sd_bus_start(bus) < 0) {
        state.SkipWithError("no bus");
        return;
    }
    uint64_t cookie = 0;
    Counted(state, [bus, &cookie] {
        sd_bus_message* message = nullptr;
        sd_bus_message_new_method_call(bus, &message, nullptr, "/bench", "com.example.Bench", "Ask");
        AppendQuestion(message);
        sd_bus_message_seal(message, ++cookie, 0);
        sd_bus_message_rewind(message, 1);
        benchmark::DoNotOptimize(ReadQuestion(message));
        sd_bus_message_unref(message);
    });
    sd_bus_unref(bus);
    pair.ours = -1;  // the bus has closed it
}

/// Entries one after the other: length of the key, of the value, the key, the value.
size_t WriteEntry(unsigned char* to, const LXPCDataListable& item) {
    const bool isText = item.type == LXPCDataTypeString;
    const auto keyBytes = static_cast<uint16_t>(std::strlen(item.name) + 1);
    const void* value = isText ? reinterpret_cast<const void*>(item.value) : &item.value;
    const auto valueBytes = static_cast<uint16_t>(isText ? std::strlen(static_cast<const char*>(value)) + 1 : 8);
    std::memcpy(to, &keyBytes, 2);
    std::memcpy(to + 2, &valueBytes, 2);
    std::memcpy(to + 4, item.name, keyBytes);
    std::memcpy(to + 4 + keyBytes, value, valueBytes);
    return size_t{4} + keyBytes + valueBytes;
}

const unsigned char* FindEntry(const unsigned char* at, const unsigned char* end, const char* key, size_t keyBytes) {
    while (at < end) {
        uint16_t lengths[2];
        std::memcpy(lengths, at, sizeof lengths);
        if (lengths[0] == keyBytes && std::memcmp(at + 4, key, keyBytes) == 0) return at + 4 + keyBytes;
        at += size_t{4} + lengths[0] + lengths[1];
    }
    return nullptr;
}

void CodingByHand(benchmark::State& state) {
    Endpoints endpoints;
    std::array<size_t, kRequestKeys.size()> keyBytes{};
    for (size_t i = 0; i < keyBytes.size(); ++i) keyBytes[i] = std::strlen(kRequestKeys[i].name) + 1;
    std::array<unsigned char, 4096> buffer{};
    Counted(state, [&] {
        unsigned char* end = buffer.data();
        for (const LXPCDataListable& item : endpoints.items) end += WriteEntry(end, item);
        benchmark::ClobberMemory();
        for (size_t i = 0; i < keyBytes.size(); ++i) {
            benchmark::DoNotOptimize(FindEntry(buffer.data(), end, kRequestKeys[i].name, keyBytes[i]));
        }
    });
}

BENCHMARK(CodingOurs)->Name("coding/ours");
BENCHMARK(CodingBus)->Name("coding/sd_bus");
BENCHMARK(CodingByHand)->Name("coding/by_hand");
BENCHMARK(CodingWireOurs)->Name("coding_wire/ours");

}  // namespace

BENCHMARK_MAIN();
