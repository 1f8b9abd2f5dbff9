#include "platform/linux/xpc_outgoing.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

namespace transport {

namespace {

constexpr size_t descriptorSpace = CMSG_SPACE(sizeof(int) * wire::maxDescriptors);
constexpr size_t piecesPerWrite = 64;

void attach(msghdr* message, unsigned char* control, const int* descriptors, size_t count) {
    message->msg_control = control;
    message->msg_controllen = CMSG_SPACE(sizeof(int) * count);
    cmsghdr* header = CMSG_FIRSTHDR(message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int) * count);
    std::memcpy(CMSG_DATA(header), descriptors, sizeof(int) * count);
}

}  // namespace

// ---- Barriers

void Barrier::run(Job* job) {
    auto* barrier = static_cast<Barrier*>(job);
    const auto connection = Ref<_xpc_connection_s>::adopt(barrier->connection_);
    dispatch_block_t block = std::move(barrier->block_);
    barrier->discard();
    const CurrentConnection current(connection.get());
    runtime::runGuarded(block);
    block = nullptr;  // what it holds goes before the connection may
}

void Barrier::discard() {
    if (taken == nullptr) {
        delete this;
        return;
    }
    block_ = nullptr;
    taken->store(false, std::memory_order_release);
}

// ---- Writing

SendOutcome sendPieces(int fd, iovec* pieces, size_t pieceCount, const int* descriptors, size_t descriptorCount,
                       size_t bytes, size_t* written) {
    alignas(cmsghdr) std::array<unsigned char, descriptorSpace> control{};
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = pieceCount;
    if (descriptorCount > 0) attach(&message, control.data(), descriptors, descriptorCount);
    ssize_t sent = 0;
    do {
        sent = sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (sent < 0 && errno == EINTR);
    *written = sent > 0 ? static_cast<size_t>(sent) : 0;
    if (sent >= 0) return *written == bytes ? SendOutcome::Sent : SendOutcome::Blocked;
    if (errno == EAGAIN) return SendOutcome::Blocked;
    if (errno == EPIPE || errno == ECONNRESET || errno == ENOTCONN) return SendOutcome::Gone;
    return SendOutcome::Failed;
}

// ---- The queue

/// Followed in the same block by its bytes.
struct OutQueue::Message final : OutItem {
    explicit Message(size_t count) : OutItem(false), size(count) {}
    ~Message() { closeDescriptors(); }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    unsigned char* bytes() { return reinterpret_cast<unsigned char*>(this + 1); }
    void closeDescriptors() {
        while (descriptorCount > 0) ::close(descriptors[--descriptorCount]);
    }

    const size_t size;
    size_t written = 0;
    size_t descriptorCount = 0;
    std::array<int, wire::maxDescriptors> descriptors;
};

OutQueue::~OutQueue() {
    while (head_ != nullptr) {
        OutItem* item = head_;
        if (!item->isBarrier) {
            pop();
            continue;
        }
        head_ = item->next;
        static_cast<Barrier*>(item)->discard();
    }
}

bool OutQueue::append(const Gathered& frame, size_t written) noexcept {
    const size_t size = frame.bytes - written;
    void* block = std::malloc(sizeof(Message) + size);
    if (block == nullptr) return false;
    auto* message = new (block) Message(size);
    unsigned char* to = message->bytes();
    for (size_t i = 0; i < frame.pieceCount; ++i) {
        const iovec& piece = frame.pieces[i];
        const size_t skip = std::min(written, piece.iov_len);
        written -= skip;
        std::memcpy(to, static_cast<const unsigned char*>(piece.iov_base) + skip, piece.iov_len - skip);
        to += piece.iov_len - skip;
    }
    const size_t descriptorCount = size == frame.bytes ? frame.descriptorCount : 0;
    for (size_t i = 0; i < descriptorCount; ++i) {
        const int copy = fcntl(frame.descriptors[i], F_DUPFD_CLOEXEC, 0);
        if (copy < 0) {
            message->~Message();
            std::free(block);
            return false;
        }
        message->descriptors[message->descriptorCount++] = copy;
    }
    push(message);
    bytes_ += size;
    ++messages_;
    return true;
}

void OutQueue::append(Barrier* barrier) noexcept {
    push(barrier);
}

void OutQueue::push(OutItem* item) noexcept {
    item->next = nullptr;
    (head_ == nullptr ? head_ : tail_->next) = item;
    tail_ = item;
}

/// Frees the message at the head.
void OutQueue::pop() noexcept {
    auto* message = static_cast<Message*>(head_);
    head_ = message->next;
    bytes_ -= message->size - message->written;
    --messages_;
    message->~Message();
    std::free(static_cast<void*>(message));
}

void OutQueue::postLeadingBarriers(dispatch_queue_t queue) noexcept {
    while (head_ != nullptr && head_->isBarrier) {
        auto* barrier = static_cast<Barrier*>(head_);
        head_ = barrier->OutItem::next;
        barrier->postTo(queue);
    }
}

void OutQueue::drop(dispatch_queue_t queue) noexcept {
    for (;;) {
        postLeadingBarriers(queue);
        if (head_ == nullptr) return;
        pop();
    }
}

/// Writes many small messages at once, over barriers; a message with descriptors begins a write of its own, so that
/// they arrive with its first byte.
SendOutcome OutQueue::flush(int fd, dispatch_queue_t queue) noexcept {
    for (;;) {
        postLeadingBarriers(queue);
        if (head_ == nullptr) return SendOutcome::Sent;
        auto* first = static_cast<Message*>(head_);
        std::array<iovec, piecesPerWrite> pieces;
        size_t count = 0;
        size_t bytes = 0;
        for (OutItem* item = head_; item != nullptr && count < pieces.size(); item = item->next) {
            if (item->isBarrier) continue;
            auto* message = static_cast<Message*>(item);
            if (message->descriptorCount > 0 && message != first) break;
            pieces[count++] = {message->bytes() + message->written, message->size - message->written};
            bytes += message->size - message->written;
        }
        size_t written = 0;
        const SendOutcome outcome =
            sendPieces(fd, pieces.data(), count, first->descriptors.data(), first->descriptorCount, bytes, &written);
        if (written > 0) {
            first->closeDescriptors();
            consume(written, queue);
        }
        if (outcome != SendOutcome::Sent) return outcome;
    }
}

/// Takes `written` bytes off the front, and posts the barriers that this leaves with nothing before them.
void OutQueue::consume(size_t written, dispatch_queue_t queue) noexcept {
    while (written > 0) {
        postLeadingBarriers(queue);
        auto* message = static_cast<Message*>(head_);
        const size_t step = std::min(written, message->size - message->written);
        message->written += step;
        bytes_ -= step;
        written -= step;
        if (message->written == message->size) pop();
    }
    postLeadingBarriers(queue);
}

}  // namespace transport
