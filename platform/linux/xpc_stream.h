// A connection over a socket: a client's to a named service, or a peer that a listener accepted.
//
// Sending: the caller's thread writes straight from the dictionary when nothing waits before it; what the socket does
// not take is copied to `out_` and drained by the io thread. An accepted peer that does not read loses its connection
// when too much waits (maxUnsentBytes, maxUnsentMessages); a client's own queue is bounded by memory only, so a burst
// of requests loses nothing. Where memory or descriptors are out, or the dictionary fits no frame, the connection ends
// as if it were cancelled: its holder learns of it, which a message left out silently would not tell.
//
// Receiving: a thread that waits at the connection's lookout, or else the io thread, reads into a buffer of its own,
// cuts frames out of it and posts each, one allocation, to the connection's queue. Only a rest that is no whole frame
// yet is kept with the connection. The lookout (the workers' for an accepted peer, the main queue's for a client) takes
// part while there is nothing to do but to read now and then: a glance that meets anything else steps aside and leaves
// it to the io thread.
//
// Ending: the end of the other side shows as the end of its data, so every whole frame was posted before; the event of
// the end goes into the same queue behind them.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "platform/linux/lookout.h"
#include "platform/linux/service_name.h"
#include "platform/linux/xpc_endpoint.h"

namespace transport {

class Listener;
class Stream;

/// A request that waits for its answer. Owned by the stream's list, then by its job.
struct PendingReply final : runtime::Job {
    PendingReply(Stream* owner, dispatch_queue_t replyQueue, xpc_handler_t replyHandler);
    ~PendingReply();

    /// Hands the handler `object` (a message, whose reference it takes over, or an error) on its queue.
    void finish(xpc_object_t object) noexcept;

    Stream* const stream;  // held by a reference from `finish` on
    dispatch_queue_t queue;
    xpc_handler_t handler;
    xpc_object_t result = nullptr;
    uint64_t id = 0;
    PendingReply* following = nullptr;

  private:
    static void run(Job* job);
    static void runAfterSuspension(Job* job);
};

/// In the order of sending, which is the usual order of the answers. Guarded by the stream's mutex.
class PendingReplies {
  public:
    PendingReplies() = default;
    ~PendingReplies();
    PendingReplies(const PendingReplies&) = delete;
    PendingReplies& operator=(const PendingReplies&) = delete;

    void add(PendingReply* reply);
    PendingReply* take(uint64_t id);  // null when nobody waits for it
    PendingReply* takeFirst();

  private:
    PendingReply* head_ = nullptr;
    PendingReply* tail_ = nullptr;
};

class Stream final : public Endpoint, private runtime::IoWatcher, private runtime::Lookout::Watcher {
  public:
    static constexpr size_t maxUnsentBytes = size_t{8} << 20;
    static constexpr size_t maxUnsentMessages = 1024;
    static constexpr uint32_t maxUndeliveredEvents = 256;
    static constexpr size_t maxUndeliveredBytes = size_t{4} << 20;
    static constexpr int framesPerTurn = 64;

    /// A client. Throws std::bad_alloc.
    static Stream* toService(const char* name, dispatch_queue_t queue);
    /// A peer; takes over the socket, which may be -1 (a connection to nothing). Null when memory is out.
    static Stream* toPeer(int socket, pid_t pid, uid_t uid, Listener* listener) noexcept;

    void send(Dictionary& message) override;
    void sendWithReply(Dictionary& message, dispatch_queue_t queue, xpc_handler_t handler) override;
    void sendBarrier(dispatch_block_t block) override;
    [[nodiscard]] pid_t pid() const noexcept override { return pid_.load(std::memory_order_relaxed); }
    [[nodiscard]] uid_t euid() const noexcept override { return uid_.load(std::memory_order_relaxed); }

    /// For the listener's job that hands the new peer to its handler.
    EndpointJob arrival;
    [[nodiscard]] Listener* listener() const;

  private:
    friend struct PendingReply;
    enum class End { PeerGone, Invalid };
    enum class Link { Down, Up, Over };

    Stream(dispatch_queue_t queue, bool accepted);
    ~Stream();
    void destroy() noexcept override { delete this; }

    // Any thread, with the mutex held.
    [[nodiscard]] bool isDoomed() const { return link_ == Link::Over || condemned_ || isCancelled(); }
    void transmit(Dictionary& message, wire::Kind kind, uint64_t id) noexcept;
    SendOutcome writeNow(Gathered& frame, size_t* written) noexcept;
    void loseReader() noexcept;
    void condemn() noexcept;

    // The io thread, in a pause of the lookout.
    void evaluate() noexcept override;
    void ready(uint32_t events) noexcept override;
    void bringInLine() noexcept;
    [[nodiscard]] bool mustEnd();
    [[nodiscard]] bool establish() noexcept;
    [[nodiscard]] bool wantsConnection();
    void retryLater() noexcept;
    bool flush() noexcept;
    bool updateInterest() noexcept;
    [[nodiscard]] bool watchFor(uint32_t wanted) noexcept;
    void unwatch() noexcept;
    void end(End reason) noexcept;
    void dropInput() noexcept;

    // Receiving (xpc_stream_receive.cpp): the lookout's thread in a glance, or the io thread in a pause; the functions
    // that can end the link are the latter's alone.
    void glance() noexcept override;
    enum class Input { Used, MoreToDo, Broken };
    Input takeInput(unsigned char* buffer) noexcept;
    bool readOnce() noexcept;
    void forgetUsed() noexcept;
    void noteFlow(int frames) noexcept;
    bool takeDescriptors(const struct msghdr& message) noexcept;
    bool consume(const unsigned char* bytes, size_t count) noexcept;
    bool consumeKept() noexcept;
    bool keep(const unsigned char* bytes, size_t count) noexcept;
    bool cutFrames(const unsigned char* bytes, size_t count, size_t* used) noexcept;
    bool takeFrame(const unsigned char* frame, size_t length) noexcept;
    bool finishReading() noexcept;
    void deliver(Dictionary* message) noexcept;
    void closeDescriptors() noexcept;
    [[nodiscard]] bool isOverfull() const;

    // The queue, or a reply's queue.
    void delivered(const Dictionary& message) noexcept;
    static void runMessage(runtime::Job* job);
    static void runInterrupted(runtime::Job* job);
    static void runRetry(runtime::Job* job);

    const bool accepted_;
    std::string name_;
    std::string runtimeDirectory_;
    Ref<_xpc_connection_s> listener_;
    std::atomic<pid_t> pid_{0};
    std::atomic<uid_t> uid_{0};

    // Guarded by the mutex. `socket_`, `link_` and `session_` are changed by the io thread only, in a pause of the
    // lookout; so it reads them without the mutex, and so does a glance.
    Link link_ = Link::Down;
    UniqueFd socket_;
    uint32_t session_ = 0;     // 0 until a client first connects; rises with each beginning and end of a link
    bool readerGone_ = false;  // the other side takes nothing more; what it sent is still being read
    bool condemned_ = false;
    OutQueue out_;
    PendingReplies pending_;
    uint64_t lastId_ = 0;

    // The io thread's, in a pause of the lookout, or a glance's.
    runtime::Lookout* lookout_ = nullptr;  // null: the io thread does everything
    runtime::Lookout::Post post_;
    bool streaming_ = false;  // many messages come at once
    int quietReads_ = 0;      // since then
    bool watched_ = false;
    uint32_t interest_ = 0;
    bool retrying_ = false;
    bool endOfData_ = false;
    bool framesLeft_ = false;  // `kept_` begins with a whole frame
    std::vector<unsigned char> kept_;
    size_t keptUsed_ = 0;
    std::array<int, 2 * wire::maxDescriptors> descriptors_{};  // received and not yet claimed by a frame
    size_t descriptorCount_ = 0;

    // Flow: what was posted and not yet handled.
    std::atomic<uint32_t> undelivered_{0};
    std::atomic<size_t> undeliveredBytes_{0};
    std::atomic<bool> paused_{false};

    EndpointJob interruptedJob_;
    std::atomic<unsigned> interruptions_{0};
    EndpointJob retryJob_;
};

}  // namespace transport
