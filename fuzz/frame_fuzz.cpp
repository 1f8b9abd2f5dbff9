// What the reader of frames accepts can be walked, read and sent on, and comes out as the same entries.
#include <xpc/xpc.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "platform/linux/wire_reader.h"
#include "platform/linux/xpc_dictionary.h"

using transport::Dictionary;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    size_t length = 0;
    if (wire::measure(data, size, &length) != wire::Verdict::Complete || !wire::check(data, length)) return 0;
    if (wire::load<wire::FrameHeader>(data).descriptors > 0) return 0;  // none can be had here
    Dictionary* message = Dictionary::receive(data, length, nullptr, {}, 0);
    auto sent = std::make_unique<transport::Gathered>();
    message->gather(message->kind(), message->id(), sent.get());
    if (sent->bytes != length || sent->pieceCount != 1) abort();
    if (std::memcmp(sent->pieces[0].iov_base, data, length) != 0) abort();
    for (size_t at = sizeof(wire::FrameHeader); at < length;) {
        const wire::Entry entry(static_cast<unsigned char*>(sent->pieces[0].iov_base) + at);
        if (message->find(entry.key()) != entry.start()) abort();
        at += entry.bytes();
    }
    xpc_dictionary_set_string(message, "k", "a longer text than most that were there");
    if (std::string(xpc_dictionary_get_string(message, "k")).size() != 39) abort();
    xpc_release(message);
    return 0;
}
