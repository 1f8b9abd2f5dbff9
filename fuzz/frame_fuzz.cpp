// A stream of frames, as a peer sends it. What the reader accepts can be walked, read and sent on and comes out as the
// same entries; then it is decoded and handled as a request, by a helper that keeps its schedules in memory only.
#include <fcntl.h>
#include <platform_testing.h>
#include <unistd.h>
#include <xpc/xpc.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "app/LRequestKeys.h"
#include "app/LScheduleHelper.h"
#include "platform/linux/wire_reader.h"
#include "platform/linux/xpc_dictionary.h"
#include "xpc/LXPCDictionary.h"

using transport::Dictionary;

namespace {

/// Stands for the application: nobody is answered, ended or started.
struct Nobody : LScheduleHelper {
    LXPCMachServer* getXPCServer() override { return nullptr; }
    void shutdownHelper() override {}
    void launchMainApp(const char*, const char*) override { abort(); }  // the clock below stands still
};

LList<LXPCDictionaryKeyListable>& requestKeys() {
    static auto& keys = *[] {
        static platform_testing::ManualClock clock;
        auto* list = new LList<LXPCDictionaryKeyListable>;
        for (const LRequestKeyType& key : kRequestKeys) list->Insert(new LXPCDictionaryKeyListable(key.name, key.type));
        return list;
    }();
    return keys;
}

/// The message in a well-formed frame, with a descriptor for each that it speaks of; null when there is none.
Dictionary* receive(const unsigned char* frame, size_t length) {
    std::array<int, wire::maxDescriptors> descriptors{};
    if (!wire::check(frame, length)) return nullptr;
    for (size_t i = 0; i < wire::load<wire::FrameHeader>(frame).descriptors; ++i) {
        descriptors[i] = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    return Dictionary::receive(frame, length, descriptors.data(), {}, 0);
}

void sendOn(Dictionary* message, const unsigned char* frame, size_t length) {
    auto sent = std::make_unique<transport::Gathered>();
    message->gather(message->kind(), message->id(), sent.get());
    if (sent->bytes != length || sent->pieceCount != 1) abort();
    const size_t skipped = sent->descriptorCount > 0 ? length : 0;  // a descriptor's value is its number here
    if (std::memcmp(sent->pieces[0].iov_base, frame, length - skipped) != 0) abort();
    for (size_t at = sizeof(wire::FrameHeader); at < length;) {
        const wire::Entry entry(static_cast<unsigned char*>(sent->pieces[0].iov_base) + at);
        if (message->find(entry.key()) != entry.start()) abort();
        at += entry.bytes();
    }
    xpc_dictionary_set_string(message, "k", "a longer text than most that were there");
    if (std::string(xpc_dictionary_get_string(message, "k")).size() != 39) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    LList<LXPCDictionaryKeyListable>& keys = requestKeys();
    Nobody delegate;
    LScheduleHelperNotify sink;
    sink.delegate = &delegate;
    platform_testing::use_defaults_at("/proc/nowhere/defaults.sqlite3");
    std::vector<uint8_t> rest(data, data + size);
    while (!rest.empty()) {
        size_t length = 0;
        if (wire::measure(rest.data(), rest.size(), &length) != wire::Verdict::Complete) {
            // A wrong length hides the rest, so from here on it counts as one frame of a right length.
            length = rest.size();
            if (length < sizeof(wire::FrameHeader)) break;
            wire::store(rest.data(), static_cast<uint32_t>(length));
            if (wire::measure(rest.data(), rest.size(), &length) != wire::Verdict::Complete) break;
        }
        Dictionary* message = receive(rest.data(), length);
        if (message == nullptr) break;
        sendOn(message, rest.data(), length);
        {
            LList<LXPCDataListable> items;
            GetXPCDictionary(message, keys, items);
            if (items.head != nullptr) sink.EvMessageReceived(0, LXPCAddress(message), items);
        }
        xpc_release(message);
        rest.erase(rest.begin(), rest.begin() + static_cast<ptrdiff_t>(length));
    }
    return 0;
}
