#include "platform/linux/xpc_listener.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "platform/linux/clock.h"
#include "platform/linux/descriptors.h"
#include "platform/linux/xpc_stream.h"

namespace transport {

namespace {

constexpr int acceptsPerTurn = 16;
constexpr uint64_t roomRetryNanoseconds = 100'000'000;

/// The peer has closed its end and left nothing to read.
bool isGone(int socket) {
    char first = '\0';
    return recv(socket, &first, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

}  // namespace

Listener::Listener(dispatch_queue_t queue) : Endpoint(queue), retryJob_(this, runRetry) {}

Listener* Listener::offering(const char* name, dispatch_queue_t queue) {
    auto listener = Ref<Listener>::adopt(new Listener(queue));
    if (!listener->offer_.open(runtimeDirectoryFromEnvironment(), name)) return nullptr;
    return listener.leak();
}

// ---- A listener has nobody to talk to

void Listener::send(Dictionary& /*message*/) {}

void Listener::sendWithReply(Dictionary& /*message*/, dispatch_queue_t queue, xpc_handler_t handler) {
    if (queue == nullptr) queue = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0);
    auto self = Ref<Listener>::share(this);
    dispatch_async(queue, [self = std::make_shared<Ref<Listener>>(std::move(self)), handler = std::move(handler)] {
        const CurrentConnection current(self->get());
        if (handler) handler(XPC_ERROR_CONNECTION_INVALID);
    });
}

pid_t Listener::pid() const noexcept {
    return 0;
}

uid_t Listener::euid() const noexcept {
    return geteuid();
}

// ---- The io thread

void Listener::evaluate() noexcept {
    if (over_ || !isActivated()) return;
    if (isCancelled()) return end();
    if (isSuspended()) return unwatch();
    waitingForRoom_ = false;
    if (watched_) return;
    watched_ = runtime::IoLoop::shared().watch(offer_.socket(), EPOLLIN, this);
    if (!watched_) waitForRoom();
}

void Listener::ready(uint32_t /*events*/) noexcept {
    if (isSuspended()) return unwatch();
    for (int i = 0; i < acceptsPerTurn; ++i) {
        switch (acceptOne()) {
            case Accepted::One:
                continue;
            case Accepted::NoneWaiting:
                crowded_ = false;
                return;
            case Accepted::NoRoom:
                return waitForRoom();
        }
    }
}

Listener::Accepted Listener::acceptOne() noexcept {
    if (!runtime::hasFreeDescriptors(spareDescriptors + 1)) {
        waitingForRoom_ = true;  // whoever closes one from here on says so; what was closed just before is seen now
        if (!runtime::hasFreeDescriptors(spareDescriptors + 1)) return Accepted::NoRoom;
        waitingForRoom_ = false;
    }
    UniqueFd socket(accept4(offer_.socket(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (socket) {
        if (!crowded_ || !isGone(socket.get())) welcome(std::move(socket));
        return Accepted::One;
    }
    switch (errno) {
        case EMFILE:
        case ENFILE:
        case ENOMEM:
        case ENOBUFS:
            return Accepted::NoRoom;
        case EINTR:
        case ECONNABORTED:
            return Accepted::One;
        default:
            return Accepted::NoneWaiting;
    }
}

void Listener::welcome(UniqueFd socket) noexcept {
    pid_t pid = 0;
    uid_t uid = 0;
    if (!peerOf(socket.get(), &pid, &uid) || uid != geteuid()) return;
    Stream* peer = Stream::toPeer(socket.get(), pid, uid, this);
    if (peer == nullptr) return;  // out of memory: the peer sees a closed connection
    (void)socket.release();
    peer->arrival.run = announce;
    queue_.post(&peer->arrival);
}

/// On the listener's queue. The reference of creation goes here; who keeps the peer has retained or resumed it.
void Listener::announce(runtime::Job* job) {
    const auto peer = Ref<Stream>::adopt(static_cast<Stream*>(static_cast<EndpointJob*>(job)->owner));
    Listener* listener = peer->listener();  // held by the peer
    if (!listener->isCancelled()) listener->handler_.call(listener, static_cast<Object*>(peer.get()));
}

void Listener::unwatch() noexcept {
    if (std::exchange(watched_, false)) runtime::IoLoop::shared().forget(offer_.socket(), this);
}

void Listener::waitForRoom() noexcept {
    unwatch();
    waitingForRoom_ = true;
    crowded_ = true;
    if (std::exchange(retryPosted_, true)) return;
    retain();
    runtime::IoLoop::shared().postAt(runtime::addSaturating(runtime::steadyNow(), roomRetryNanoseconds), &retryJob_);
}

void Listener::runRetry(runtime::Job* job) {
    auto* listener = static_cast<Listener*>(static_cast<EndpointJob*>(job)->owner);
    listener->retryPosted_ = false;
    listener->evaluate();
    listener->release();
}

void Listener::descriptorFreed() noexcept {
    if (waitingForRoom_.exchange(false)) poke();
}

void Listener::end() noexcept {
    over_ = true;
    unwatch();
    offer_.withdraw();
    postFinalEvent();
}

}  // namespace transport
