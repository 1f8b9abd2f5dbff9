#include "platform/linux/xpc_endpoint.h"

#include <cassert>

namespace transport {

// ---- Handlers

void EventHandler::set(xpc_handler_t handler) {
    const std::lock_guard lock(mutex_);
    if (closed_) return;
    std::swap(next_, handler);  // the one that was never called goes after the lock, with the parameter
    changed_.store(true, std::memory_order_release);
}

void EventHandler::call(xpc_connection_t connection, xpc_object_t event) noexcept {
    if (changed_.load(std::memory_order_acquire)) {
        xpc_handler_t old = std::move(current_);
        const std::lock_guard lock(mutex_);
        current_ = std::move(next_);
        next_ = nullptr;
        changed_.store(false, std::memory_order_relaxed);
    }
    if (!current_) return;
    const CurrentConnection current(connection);
    runtime::runGuarded([&] { current_(event); });
}

void EventHandler::close() noexcept {
    const xpc_handler_t last = std::move(current_);
    xpc_handler_t unused;
    current_ = nullptr;
    const std::lock_guard lock(mutex_);
    std::swap(unused, next_);
    closed_ = true;
}

// ---- Endpoints

Endpoint::Endpoint(dispatch_queue_t queue)
    : target_(queue), queue_(queue), pokeJob_(this, runPoke), finalJob_(this, runFinal) {
    ownBarrier_.taken = &barrierTaken_;
    queue_.suspend();
}

void Endpoint::setHandler(xpc_handler_t handler) {
    handler_.set(std::move(handler));
}

void Endpoint::suspend() noexcept {
    const std::lock_guard lock(mutex_);
    suspensions_.fetch_add(1, std::memory_order_acq_rel);
    queue_.suspend();
}

void Endpoint::resume() noexcept {
    const std::lock_guard lock(mutex_);
    assert(suspensions_.load() > 0 && "more resumes than suspends");
    if (suspensions_.load() == 0) return;
    if (suspensions_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        if (!activated_.exchange(true)) retain();  // released by the final event
        poke();
    }
    queue_.resume();
}

void Endpoint::cancel() noexcept {
    if (cancelled_.exchange(true)) return;
    if (isActivated()) poke();  // else the first resume finds it cancelled
}

void Endpoint::poke() noexcept {
    if (poked_.exchange(true, std::memory_order_acq_rel)) return;
    retain();
    runtime::IoLoop::shared().post(&pokeJob_);
}

void Endpoint::runPoke(runtime::Job* job) {
    Endpoint* endpoint = static_cast<EndpointJob*>(job)->owner;
    endpoint->poked_.exchange(false, std::memory_order_acq_rel);
    endpoint->evaluate();
    endpoint->release();
}

void Endpoint::postFinalEvent() noexcept {
    queue_.post(&finalJob_);
}

void Endpoint::runFinal(runtime::Job* job) {
    Endpoint* endpoint = static_cast<EndpointJob*>(job)->owner;
    endpoint->handler_.call(endpoint, XPC_ERROR_CONNECTION_INVALID);
    endpoint->handler_.close();
    endpoint->release();
}

Barrier* Endpoint::takeBarrier() {
    return barrierTaken_.exchange(true, std::memory_order_acquire) ? new Barrier : &ownBarrier_;
}

void Endpoint::sendBarrier(dispatch_block_t block) {
    Barrier* barrier = takeBarrier();
    barrier->arm(this, std::move(block));
    barrier->postTo(&queue_);
}

}  // namespace transport
