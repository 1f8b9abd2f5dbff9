// What the two kinds of connection have in common: Stream (a client's or an accepted peer's socket) and Listener.
#pragma once

#include <sys/types.h>

#include "platform/linux/xpc_object.h"

namespace transport {
class Dictionary;
class Barrier;
struct PendingReply;
}  // namespace transport

/// The operations of <xpc/xpc.h> on a connection; each may be called from any thread.
struct _xpc_connection_s : transport::Object {
    _xpc_connection_s() : Object(XPC_TYPE_CONNECTION) {}

    virtual void setHandler(xpc_handler_t handler) = 0;
    virtual void suspend() noexcept = 0;
    virtual void resume() noexcept = 0;
    virtual void cancel() noexcept = 0;
    virtual void send(transport::Dictionary& message) = 0;
    virtual void sendWithReply(transport::Dictionary& message, dispatch_queue_t queue, xpc_handler_t handler) = 0;
    virtual void sendBarrier(dispatch_block_t block) = 0;
    [[nodiscard]] virtual pid_t pid() const noexcept = 0;
    [[nodiscard]] virtual uid_t euid() const noexcept = 0;

  protected:
    ~_xpc_connection_s() = default;
};
