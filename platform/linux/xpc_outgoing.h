// What a connection has not sent yet: messages that the socket did not take, and barriers behind them.
//
// The usual message never comes here: its sender writes it straight from the dictionary. Guarded by the connection's
// mutex.
#pragma once

#include <sys/types.h>

#include <cstddef>

#include "platform/linux/runtime.h"
#include "platform/linux/xpc_dictionary.h"

namespace transport {

struct OutItem {
    explicit OutItem(bool barrier) : isBarrier(barrier) {}
    OutItem* next = nullptr;
    const bool isBarrier;
};

/// A block that runs once everything before it has left.
class Barrier final : public OutItem, public runtime::Job {
  public:
    Barrier() : OutItem(true), Job(run) {}

    void arm(_xpc_connection_s* connection, dispatch_block_t block) {
        connection_ = connection;
        block_ = std::move(block);
    }
    /// Hands it to the connection's queue, with a reference on the connection.
    void postTo(dispatch_queue_t queue) noexcept {
        connection_->retain();
        queue->post(this);
    }
    /// The flag of a barrier that is part of its connection and may be used again, cleared once it is; null (and then
    /// the barrier frees itself) otherwise.
    std::atomic<bool>* taken = nullptr;
    /// Frees a barrier that will not run.
    void discard();

  private:
    static void run(Job* job);

    _xpc_connection_s* connection_ = nullptr;
    dispatch_block_t block_;
};

enum class SendOutcome {
    Sent,     // all of it
    Blocked,  // the socket takes no more for now
    Gone,     // nobody reads there any more
    Failed,   // the system lacks memory, or too many descriptors are on their way
};

/// One write of `pieces` that does not wait and raises no signal. `written` receives what the socket took; the
/// descriptors went with it when that is more than nothing.
SendOutcome sendPieces(int fd, iovec* pieces, size_t pieceCount, const int* descriptors, size_t descriptorCount,
                       size_t bytes, size_t* written);

class OutQueue {
  public:
    OutQueue() = default;
    ~OutQueue();
    OutQueue(const OutQueue&) = delete;
    OutQueue& operator=(const OutQueue&) = delete;

    /// Copies what is left of a frame after its first `written` bytes, and its descriptors when none of it was written.
    /// False when memory or descriptors are out.
    bool append(const Gathered& frame, size_t written) noexcept;
    void append(Barrier* barrier) noexcept;

    [[nodiscard]] bool empty() const { return head_ == nullptr; }
    [[nodiscard]] size_t bytes() const { return bytes_; }
    [[nodiscard]] size_t messages() const { return messages_; }

    /// Writes what the socket takes, and posts each barrier that has nothing before it to `queue`.
    SendOutcome flush(int fd, dispatch_queue_t queue) noexcept;

    /// Drops every message and posts every barrier to `queue`.
    void drop(dispatch_queue_t queue) noexcept;

  private:
    struct Message;
    void push(OutItem* item) noexcept;
    void pop() noexcept;
    void postLeadingBarriers(dispatch_queue_t queue) noexcept;
    void consume(size_t written, dispatch_queue_t queue) noexcept;

    OutItem* head_ = nullptr;
    OutItem* tail_ = nullptr;
    size_t bytes_ = 0;
    size_t messages_ = 0;
};

}  // namespace transport
