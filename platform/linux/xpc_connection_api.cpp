// The connection functions of <xpc/xpc.h>, and the test hook that makes a peer.
#include <unistd.h>

#include <new>

#include <platform_testing.h>

#include "platform/linux/xpc_listener.h"
#include "platform/linux/xpc_stream.h"

using transport::Dictionary;
using transport::Listener;
using transport::Stream;

namespace {

Dictionary* dictionaryOf(xpc_object_t object) {
    return xpc_get_type(object) == XPC_TYPE_DICTIONARY ? static_cast<Dictionary*>(object) : nullptr;
}

}  // namespace

xpc_connection_t xpc_connection_create(const char* name, dispatch_queue_t queue) {
    return transport::isServiceName(name) ? Stream::toService(name, queue) : nullptr;
}

xpc_connection_t xpc_connection_create_mach_service(const char* name, dispatch_queue_t queue, uint64_t flags) {
    if ((flags & XPC_CONNECTION_MACH_SERVICE_LISTENER) == 0) return xpc_connection_create(name, queue);
    return transport::isServiceName(name) ? Listener::offering(name, queue) : nullptr;
}

void xpc_connection_set_event_handler(xpc_connection_t connection, xpc_handler_t handler) {
    connection->setHandler(std::move(handler));
}

void xpc_connection_suspend(xpc_connection_t connection) {
    connection->suspend();
}

void xpc_connection_resume(xpc_connection_t connection) {
    connection->resume();
}

void xpc_connection_cancel(xpc_connection_t connection) {
    connection->cancel();
}

void xpc_connection_send_message(xpc_connection_t connection, xpc_object_t message) {
    if (Dictionary* dictionary = dictionaryOf(message)) connection->send(*dictionary);
}

void xpc_connection_send_message_with_reply(xpc_connection_t connection, xpc_object_t message, dispatch_queue_t queue,
                                            xpc_handler_t handler) {
    if (Dictionary* dictionary = dictionaryOf(message))
        connection->sendWithReply(*dictionary, queue, std::move(handler));
}

void xpc_connection_send_barrier(xpc_connection_t connection, dispatch_block_t barrier) {
    connection->sendBarrier(std::move(barrier));
}

pid_t xpc_connection_get_pid(xpc_connection_t connection) {
    return connection->pid();
}

uid_t xpc_connection_get_euid(xpc_connection_t connection) {
    return connection->euid();
}

xpc_connection_t platform_testing::make_connection_with_pid(pid_t pid) {
    Stream* stream = Stream::toPeer(-1, pid, geteuid(), nullptr);
    if (stream == nullptr) throw std::bad_alloc();
    return stream;
}
