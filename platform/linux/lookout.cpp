#include "platform/linux/lookout.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <utility>

#include "platform/linux/census.h"
#include "platform/linux/descriptors.h"
#include "platform/linux/thread.h"

namespace runtime {

namespace {

constexpr int descriptorsToSpare = 64;
constexpr int eventsAtOnce = 16;
constexpr uint64_t bellEvent = ~uint64_t{0};
constexpr itimerspec alarmAfter = {{0, 0}, {0, 1'000'000}};

std::atomic<Lookout*> workersLookout{nullptr};
std::atomic<Lookout*> mainLookout{nullptr};

bool add(int epoll, int fd, uint32_t events, uint64_t data) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = data;
    return epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0;
}

}  // namespace

// ---- Making

Lookout* Lookout::make(std::atomic<Lookout*>& made) noexcept {
    if (!hasFreeDescriptors(descriptorsToSpare)) return nullptr;
    auto* lookout = new (std::nothrow) Lookout(IoLoop::shared());
    if (lookout == nullptr) return nullptr;
    if (!lookout->open()) {
        delete lookout;
        return nullptr;
    }
    made.store(lookout, std::memory_order_release);
    return lookout;
}

Lookout* Lookout::ofWorkers() noexcept {
    static Lookout* const lookout = make(workersLookout);
    return lookout;
}

Lookout* Lookout::ofMainQueue() noexcept {
    static Lookout* const lookout = make(mainLookout);
    return lookout;
}

Lookout* Lookout::ofMainQueueIfMade() noexcept {
    return mainLookout.load(std::memory_order_acquire);
}

/// Bell and alarm are never read: with EPOLLET each ring is an event of its own. The io thread serves the lookout until
/// somebody comes.
bool Lookout::open() noexcept {
    epoll_.reset(epoll_create1(EPOLL_CLOEXEC));
    bell_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    timer_.reset(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    if (!epoll_ || !bell_ || !timer_ || !add(epoll_.get(), bell_.get(), EPOLLIN | EPOLLET, bellEvent)) return false;
    if (!loop_.watch(epoll_.get(), EPOLLIN, &relief_)) return false;
    relieved_ = true;
    if (loop_.watch(timer_.get(), EPOLLIN | EPOLLET, &alarm_)) return true;
    loop_.ignore(epoll_.get());
    return false;
}

// ---- What is watched

bool Lookout::watch(int fd, Watcher* watcher, Post* post) noexcept {
    if (firstFree_ == none) {
        try {
            places_.emplace_back();
        } catch (const std::bad_alloc&) {
            return false;
        }
        firstFree_ = static_cast<uint32_t>(places_.size() - 1);
    }
    const uint32_t index = firstFree_;
    Place& place = places_[index];
    if (!add(epoll_.get(), fd, EPOLLIN, uint64_t{++place.user} << 32 | index)) return false;
    firstFree_ = std::exchange(place.nextFree, none);
    place.watcher = watcher;
    useful_.store(true, std::memory_order_relaxed);
    *post = {fd, index};
    return true;
}

void Lookout::forget(Post* post) noexcept {
    if (!post->taken()) return;
    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, post->fd, nullptr);
    places_[post->index].watcher = nullptr;
    places_[post->index].nextFree = std::exchange(firstFree_, post->index);
    *post = {};
}

void Lookout::serve(int timeout) noexcept {
    std::array<epoll_event, eventsAtOnce> events;
    const int count = epoll_wait(epoll_.get(), events.data(), eventsAtOnce, timeout);
    if (count < 0 && errno != EINTR) abort();  // a descriptor of ours was closed under us
    if (newJobsForbidden()) return;
    const std::lock_guard lock(mutex_);
    for (int i = 0; i < count; ++i) {
        const uint64_t data = events[static_cast<size_t>(i)].data.u64;
        if (data == bellEvent) continue;
        const Place& place = places_[static_cast<uint32_t>(data)];
        if (place.watcher != nullptr && place.user == data >> 32) place.watcher->glance();
    }
}

// ---- Who watches

void Lookout::wait() noexcept {
    serve(-1);
    if (newJobsForbidden()) parkForGood();
}

void Lookout::ring() noexcept {
    const uint64_t one = 1;
    (void)!::write(bell_.get(), &one, sizeof one);  // cannot fail: the count stays far below its end
}

void Lookout::take() noexcept {
    const std::lock_guard lock(reliefMutex_);
    moves_.fetch_add(1);
    if (std::exchange(relieved_, false)) loop_.ignore(epoll_.get());
}

void Lookout::leave() noexcept {
    moves_.fetch_add(1);
    if (!alarmSet_.load()) setAlarm();
}

void Lookout::setAlarm() noexcept {
    alarmSet_.store(true);
    movesAtAlarm_.store(moves_.load());
    timerfd_settime(timer_.get(), 0, &alarmAfter, nullptr);
}

/// An absence that began after the alarm was set is given a millisecond of its own.
void Lookout::alarmed() noexcept {
    alarmSet_.store(false);
    if (!isEmpty()) return;
    if (moves_.load() == movesAtAlarm_.load()) relieve();
    const std::lock_guard lock(reliefMutex_);
    if (isEmpty() && !relieved_) setAlarm();
}

void Lookout::relieve() noexcept {
    if (!isEmpty()) return;
    const std::lock_guard lock(reliefMutex_);
    if (isEmpty() && !relieved_) relieved_ = loop_.watch(epoll_.get(), EPOLLIN, &relief_);
}

/// Only while nobody is on watch: a ring is heard once, and it is for whoever is.
void Lookout::serveInRelief() noexcept {
    const std::lock_guard lock(reliefMutex_);
    if (relieved_) serve(0);
}

void expectToBlock() noexcept {
    if (Lookout* lookout = workersLookout.load(std::memory_order_acquire)) lookout->relieve();
}

}  // namespace runtime
