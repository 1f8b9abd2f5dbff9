#include "platform/linux/xpc_stream.h"

#include <sys/epoll.h>

#include <algorithm>
#include <new>

#include "platform/linux/clock.h"
#include "platform/linux/xpc_listener.h"

namespace transport {

namespace {

constexpr uint64_t busyRetryNanoseconds = 10'000'000;  // a service that is behind with accepting is given 10 ms

}  // namespace

// ---- Pending replies

PendingReply::PendingReply(Stream* owner, dispatch_queue_t replyQueue, xpc_handler_t replyHandler)
    : Job(run),
      stream(owner),
      queue(replyQueue != nullptr ? replyQueue : dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0)),
      handler(std::move(replyHandler)) {
    queue->retain();
}

PendingReply::~PendingReply() {
    queue->release();
}

void PendingReply::finish(xpc_object_t object) noexcept {
    result = object;
    stream->retain();
    queue->post(this);
}

void PendingReply::run(Job* job) {
    auto* reply = static_cast<PendingReply*>(job);
    Stream* stream = reply->stream;
    if (stream->isSuspended()) {  // its own queue stands still until it is resumed
        reply->Job::run = runAfterSuspension;
        stream->queue_.post(reply);
        return;
    }
    {
        const CurrentConnection current(stream);
        runtime::runGuarded([&] {
            if (reply->handler) reply->handler(reply->result);
        });
    }
    reply->handler = nullptr;
    if (xpc_get_type(reply->result) == XPC_TYPE_DICTIONARY) {
        stream->delivered(*static_cast<Dictionary*>(reply->result));
        xpc_release(reply->result);
    }
    delete reply;
    stream->release();
}

void PendingReply::runAfterSuspension(Job* job) {
    auto* reply = static_cast<PendingReply*>(job);
    reply->Job::run = run;
    reply->queue->post(reply);
}

PendingReplies::~PendingReplies() {
    while (PendingReply* reply = takeFirst()) delete reply;
}

void PendingReplies::add(PendingReply* reply) {
    (head_ == nullptr ? head_ : tail_->following) = reply;
    tail_ = reply;
}

PendingReply* PendingReplies::take(uint64_t id) {
    PendingReply* before = nullptr;
    for (PendingReply* reply = head_; reply != nullptr; before = std::exchange(reply, reply->following)) {
        if (reply->id != id) continue;
        (before == nullptr ? head_ : before->following) = reply->following;
        if (tail_ == reply) tail_ = before;
        return reply;
    }
    return nullptr;
}

PendingReply* PendingReplies::takeFirst() {
    return head_ == nullptr ? nullptr : take(head_->id);
}

// ---- Making

Stream::Stream(dispatch_queue_t queue, bool accepted)
    : Endpoint(queue),
      arrival(this, nullptr),
      accepted_(accepted),
      interruptedJob_(this, runInterrupted),
      retryJob_(this, runRetry) {}

Stream::~Stream() {
    dropInput();
}

Stream* Stream::toService(const char* name, dispatch_queue_t queue) {
    auto stream = Ref<Stream>::adopt(new Stream(queue, false));
    stream->name_ = name;
    stream->runtimeDirectory_ = runtimeDirectoryFromEnvironment();
    stream->lookout_ = runtime::Lookout::ofMainQueue();
    return stream.leak();
}

Stream* Stream::toPeer(int socket, pid_t pid, uid_t uid, Listener* listener) noexcept {
    auto* stream = new (std::nothrow) Stream(nullptr, true);
    if (stream == nullptr) return nullptr;
    stream->socket_.reset(socket);
    stream->lookout_ = runtime::Lookout::ofWorkers();
    stream->link_ = socket < 0 ? Link::Down : Link::Up;
    stream->pid_ = pid;
    stream->uid_ = uid;
    stream->listener_ = Ref<_xpc_connection_s>::share(listener);
    return stream;
}

Listener* Stream::listener() const {
    return static_cast<Listener*>(listener_.get());
}

// ---- Sending, on the caller's thread

void Stream::send(Dictionary& message) {
    const bool isReply = message.kind() == wire::Kind::Reply && message.remote() == this;
    const std::lock_guard lock(mutex_);
    if (isDoomed()) return;
    if (isReply && message.session() != session_) return;  // whoever asked is gone
    transmit(message, isReply ? wire::Kind::Reply : wire::Kind::Message, isReply ? message.id() : 0);
}

void Stream::sendWithReply(Dictionary& message, dispatch_queue_t queue, xpc_handler_t handler) {
    auto* reply = new PendingReply(this, queue, std::move(handler));
    const std::lock_guard lock(mutex_);
    if (isDoomed() && isActivated()) {
        reply->finish(XPC_ERROR_CONNECTION_INVALID);
        return;
    }
    reply->id = ++lastId_;
    pending_.add(reply);
    if (!isDoomed()) transmit(message, wire::Kind::Request, reply->id);
}

void Stream::transmit(Dictionary& message, wire::Kind kind, uint64_t id) noexcept {
    if (!message.fitsFrame()) return condemn();
    Gathered frame;
    message.gather(kind, id, &frame);
    size_t written = 0;
    switch (writeNow(frame, &written)) {
        case SendOutcome::Sent:
            return;
        case SendOutcome::Gone:
            return loseReader();
        case SendOutcome::Failed:
            return condemn();
        case SendOutcome::Blocked:
            break;
    }
    const bool first = out_.empty();
    if (!out_.append(frame, written)) return condemn();
    if (accepted_ && (out_.bytes() > maxUnsentBytes || out_.messages() > maxUnsentMessages)) return condemn();
    if (first && isActivated()) poke();  // to connect, or to wait until the socket takes more
}

/// Writes what the socket takes now, unless something waits before it. Blocked when it has to wait as well.
SendOutcome Stream::writeNow(Gathered& frame, size_t* written) noexcept {
    if (readerGone_) return SendOutcome::Gone;
    if (link_ != Link::Up || isSuspended() || !out_.empty()) return SendOutcome::Blocked;
    return sendPieces(socket_.get(), frame.pieces.data(), frame.pieceCount, frame.descriptors.data(),
                      frame.descriptorCount, frame.bytes, written);
}

/// Nothing more can be sent over this link; the end of its data, which the io thread meets, decides what that means.
void Stream::loseReader() noexcept {
    readerGone_ = true;
    out_.drop(&queue_);
}

void Stream::condemn() noexcept {
    condemned_ = true;
    poke();
}

void Stream::sendBarrier(dispatch_block_t block) {
    Barrier* barrier = takeBarrier();
    barrier->arm(this, std::move(block));
    const std::lock_guard lock(mutex_);
    if (!isActivated() || (!out_.empty() && !isDoomed())) {
        out_.append(barrier);
    } else {
        barrier->postTo(&queue_);
    }
}

// ---- The io thread

void Stream::evaluate() noexcept {
    const runtime::Lookout::Pause pause(lookout_);
    bringInLine();
}

void Stream::bringInLine() noexcept {
    if (!isActivated() || link_ == Link::Over) return;
    if (mustEnd()) return end(End::Invalid);
    if (link_ == Link::Down && !establish()) return;
    if (consumeKept() && flush()) (void)updateInterest();
}

bool Stream::mustEnd() {
    const std::lock_guard lock(mutex_);
    return condemned_ || isCancelled();
}

/// Connects to the service, if it is time to. False when there is no connection yet, or never will be.
bool Stream::establish() noexcept {
    if (accepted_) return end(End::Invalid), false;
    if (!wantsConnection()) return false;
    ServiceLink link;
    ConnectOutcome outcome = ConnectOutcome::Failed;
    runtime::runGuarded([&] { outcome = connectToService(runtimeDirectory_, name_.c_str(), &link); });
    if (outcome == ConnectOutcome::Busy) return retryLater(), false;
    if (outcome == ConnectOutcome::Failed) return end(End::Invalid), false;
    const std::lock_guard lock(mutex_);
    socket_ = std::move(link.socket);
    pid_ = link.pid;
    uid_ = link.uid;
    link_ = Link::Up;
    ++session_;
    return true;
}

/// At the first resume, and after an interruption as soon as there is something to send.
bool Stream::wantsConnection() {
    const std::lock_guard lock(mutex_);
    if (retrying_ || isSuspended()) return false;
    return session_ == 0 || !out_.empty();
}

void Stream::retryLater() noexcept {
    retrying_ = true;
    retain();
    runtime::IoLoop::shared().postAt(runtime::addSaturating(runtime::steadyNow(), busyRetryNanoseconds), &retryJob_);
}

void Stream::runRetry(runtime::Job* job) {
    auto* stream = static_cast<Stream*>(static_cast<EndpointJob*>(job)->owner);
    stream->retrying_ = false;
    stream->evaluate();
    stream->release();
}

void Stream::ready(uint32_t events) noexcept {
    const auto self = Ref<Stream>::share(this);  // the last event may be handled before this returns
    const runtime::Lookout::Pause pause(lookout_);
    const bool ended = (events & (EPOLLHUP | EPOLLERR)) != 0;
    if ((interest_ & EPOLLIN) != 0 && ((events & EPOLLIN) != 0 || ended)) {
        if (!readOnce()) return;
    } else if (ended) {
        // What was received waits until its handler has caught up; only the sending side ends now.
        const std::lock_guard lock(mutex_);
        loseReader();
    }
    if (flush()) (void)updateInterest();
}

/// False when the connection ended over it.
bool Stream::flush() noexcept {
    {
        const std::lock_guard lock(mutex_);
        if (out_.empty() || isSuspended() || link_ != Link::Up) return true;
        switch (readerGone_ ? SendOutcome::Gone : out_.flush(socket_.get(), &queue_)) {
            case SendOutcome::Sent:
            case SendOutcome::Blocked:
                return true;
            case SendOutcome::Gone:
                loseReader();
                return true;
            case SendOutcome::Failed:
                break;
        }
    }
    end(End::Invalid);
    return false;
}

/// Watches the socket for what can be done with it now, and not at all when that is nothing: an ended socket is always
/// "ready" and would keep the loop spinning.
bool Stream::updateInterest() noexcept {
    if (isOverfull()) {
        paused_ = true;
        if (!isOverfull()) paused_ = false;  // the handler caught up before it could see that it was waited for
    }
    if (framesLeft_ && !paused_) poke();
    uint32_t wanted = paused_ || framesLeft_ || endOfData_ ? 0U : static_cast<uint32_t>(EPOLLIN);
    {
        const std::lock_guard lock(mutex_);
        if (!out_.empty() && !isSuspended()) wanted |= EPOLLOUT;
    }
    if (watchFor(wanted)) return true;
    end(End::Invalid);
    return false;
}

/// Where reading now and then is all there is to do, the lookout has the socket; otherwise the io loop.
bool Stream::watchFor(uint32_t wanted) noexcept {
    runtime::IoLoop& loop = runtime::IoLoop::shared();
    const bool fromLookout = lookout_ != nullptr && wanted == EPOLLIN && !streaming_;
    if (wanted == interest_ && fromLookout == post_.taken()) return true;
    if (wanted == 0 || fromLookout || post_.taken()) unwatch();
    interest_ = wanted;
    if (wanted == 0) return true;
    if (fromLookout && lookout_->watch(socket_.get(), this, &post_)) return true;
    if (watched_) return loop.change(socket_.get(), wanted, this);
    watched_ = loop.watch(socket_.get(), wanted, this);
    return watched_;
}

void Stream::unwatch() noexcept {
    if (lookout_ != nullptr) lookout_->forget(&post_);
    if (std::exchange(watched_, false)) runtime::IoLoop::shared().forget(socket_.get(), this);
    interest_ = 0;
}

/// Closes the link. Barriers that wait behind unsent messages run, every pending reply gets its error, and the event
/// goes behind all that was received. A client of a service whose other side is gone may connect again.
void Stream::end(End reason) noexcept {
    const auto self = Ref<Stream>::share(this);
    const bool over = accepted_ || reason == End::Invalid;
    unwatch();
    dropInput();
    UniqueFd closing;
    {
        const std::lock_guard lock(mutex_);
        if (link_ == Link::Over) return;
        link_ = over ? Link::Over : Link::Down;
        ++session_;  // replies to the side that has gone must not wake up or reach another
        closing = std::move(socket_);
        readerGone_ = false;
        out_.drop(&queue_);
        const xpc_object_t error = over ? XPC_ERROR_CONNECTION_INVALID : XPC_ERROR_CONNECTION_INTERRUPTED;
        while (PendingReply* reply = pending_.takeFirst()) reply->finish(error);
    }
    closing.reset();
    if (listener_) listener()->descriptorFreed();
    if (over) {
        postFinalEvent();
    } else if (interruptions_.fetch_add(1) == 0) {
        retain();
        queue_.post(&interruptedJob_);
    }
}

// ---- The queue

/// Interruptions that came before this one was handled follow it one by one.
void Stream::runInterrupted(runtime::Job* job) {
    auto* stream = static_cast<Stream*>(static_cast<EndpointJob*>(job)->owner);
    if (!stream->isCancelled()) stream->handler_.call(stream, XPC_ERROR_CONNECTION_INTERRUPTED);
    if (stream->interruptions_.fetch_sub(1) > 1) {
        stream->queue_.post(job);
    } else {
        stream->release();
    }
}

void Stream::runMessage(runtime::Job* job) {
    auto* message = static_cast<Dictionary*>(job);
    auto* stream = static_cast<Stream*>(message->remote());
    if (!stream->isCancelled()) stream->handler_.call(stream, static_cast<Object*>(message));
    stream->delivered(*message);
    message->release();  // and with it, perhaps, the connection
}

void Stream::delivered(const Dictionary& message) noexcept {
    const uint32_t events = undelivered_.fetch_sub(message.receivedWeight()) - message.receivedWeight();
    const size_t bytes = undeliveredBytes_.fetch_sub(message.receivedBytes()) - message.receivedBytes();
    if (events > maxUndeliveredEvents / 2 || bytes > maxUndeliveredBytes / 2) return;
    if (paused_ && paused_.exchange(false)) poke();
}

}  // namespace transport
