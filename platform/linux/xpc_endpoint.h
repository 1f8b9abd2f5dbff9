// What clients, accepted peers and listeners share: a handler, a serial queue, counted suspension and cancellation.
//
// Three kinds of thread meet in a connection, each with its part:
//   - callers change what is asked for (suspended, cancelled, handler), and then poke the io thread;
//   - the io thread alone opens, watches and closes descriptors: `evaluate` compares what is asked for with what is;
//     what comes in is read by it or by a thread that waits at a lookout, which may leave a socket to it
//     (xpc_stream.h);
//   - the queue runs the handlers, one at a time; a job in it holds a reference on the connection.
//
// References: from its first resume until its last event a connection holds one on itself, so an accepted peer that
// nobody retained is served, and the end of a connection is always delivered. One that was never resumed holds none:
// its last release closes its descriptor, runs no handler and no barrier.
#pragma once

#include <mutex>

#include "platform/linux/runtime.h"
#include "platform/linux/xpc_outgoing.h"

namespace transport {

/// A handler that is replaced from any thread and called on one queue. A call in progress keeps the handler it has.
class EventHandler {
  public:
    void set(xpc_handler_t handler);
    /// On the queue: calls the latest handler, if there is one.
    void call(xpc_connection_t connection, xpc_object_t event) noexcept;
    /// On the queue, or when no call can come any more: frees the handler and takes no other.
    void close() noexcept;

  private:
    std::mutex mutex_;
    xpc_handler_t next_;
    std::atomic<bool> changed_{false};
    bool closed_ = false;
    xpc_handler_t current_;
};

class Endpoint : public _xpc_connection_s {
  public:
    void setHandler(xpc_handler_t handler) final;
    void suspend() noexcept final;
    void resume() noexcept final;
    void cancel() noexcept final;
    void sendBarrier(dispatch_block_t block) override;

    /// Something changed that the io thread has to look at; several pokes may become one look.
    void poke() noexcept;

  protected:
    explicit Endpoint(dispatch_queue_t queue);
    ~Endpoint() = default;

    /// On the io thread: brings descriptors and their watching in line with what is asked for.
    virtual void evaluate() noexcept = 0;

    /// On the io thread, once: the connection is over. Its last event is CONNECTION_INVALID.
    void postFinalEvent() noexcept;

    /// Takes the barrier that is part of the connection, or a new one. Throws std::bad_alloc.
    Barrier* takeBarrier();

    // Sequentially consistent, as their changes are: of a cancel and a first resume that race, one sees the other.
    [[nodiscard]] bool isCancelled() const { return cancelled_.load(); }
    [[nodiscard]] bool isActivated() const { return activated_.load(); }
    [[nodiscard]] bool isSuspended() const { return suspensions_.load(std::memory_order_acquire) > 0; }

    struct EndpointJob : runtime::Job {
        EndpointJob(Endpoint* endpoint, Run function) : Job(function), owner(endpoint) {}
        Endpoint* const owner;
    };

  private:
    /// Outlives `queue_`, whose last turn may still be leaving it.
    struct Target {
        explicit Target(dispatch_queue_t held) : queue(held) {
            if (queue != nullptr) queue->retain();
        }
        ~Target() {
            if (queue != nullptr) queue->release();
        }
        Target(const Target&) = delete;
        Target& operator=(const Target&) = delete;
        const dispatch_queue_t queue;
    };
    Target target_;

  protected:
    std::mutex mutex_;
    runtime::SerialQueue queue_;
    EventHandler handler_;

  private:
    static void runPoke(runtime::Job* job);
    static void runFinal(runtime::Job* job);

    std::atomic<unsigned> suspensions_{1};
    std::atomic<bool> activated_{false};  // resumed once
    std::atomic<bool> cancelled_{false};
    std::atomic<bool> poked_{false};
    std::atomic<bool> barrierTaken_{false};
    Barrier ownBarrier_;
    EndpointJob pokeJob_;
    EndpointJob finalJob_;
};

}  // namespace transport
