// One turn of the io thread:
//   1. run the jobs that were posted since the last turn, in order;
//   2. run the delayed jobs whose deadline has passed;
//   3. wait for events: for ever, or until the next delayed job, or not at all when step 1 left new jobs behind;
//   4. call the watcher of each event, but for those that were forgotten meanwhile.
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <vector>

#include "platform/linux/clock.h"
#include "platform/linux/io_thread.h"
#include "platform/linux/runtime.h"
#include "platform/linux/thread.h"

namespace runtime {

namespace {

constexpr int kEventsPerTurn = 64;
constexpr size_t kUsualDelayedJobs = 64;

IoLoop* theLoop = nullptr;
thread_local bool onIoThread = false;

struct Delayed {
    uint64_t deadline;
    Job* job;
};

int orAbort(int descriptor) {
    if (descriptor < 0) abort();
    return descriptor;
}

}  // namespace

struct IoLoop::Body final : IoWatcher {
    Body();
    [[noreturn]] void run();
    void runPosted();
    void runDelayed();
    int timeout();
    void serveEvents();
    void ready(uint32_t events) noexcept override;
    bool control(int operation, int fd, uint32_t events, IoWatcher* watcher) const noexcept;

    const int epoll = orAbort(epoll_create1(EPOLL_CLOEXEC));
    const int wakeUp = orAbort(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));

    std::mutex mutex;
    JobList posted;
    bool woken = false;                  // the descriptor was written since the jobs were last fetched
    std::atomic<bool> hasPosted{false};  // spares the turn without jobs the lock

    // Touched by the io thread only.
    std::vector<Delayed> delayed;
    epoll_event events[kEventsPerTurn] = {};
    int eventCount = 0;
    int eventIndex = 0;
};

IoLoop::Body::Body() {
    delayed.reserve(kUsualDelayedJobs);
    if (!control(EPOLL_CTL_ADD, wakeUp, EPOLLIN, this)) abort();
}

bool IoLoop::Body::control(int operation, int fd, uint32_t wanted, IoWatcher* watcher) const noexcept {
    epoll_event event{};
    event.events = wanted;
    event.data.ptr = watcher;
    return epoll_ctl(epoll, operation, fd, &event) == 0;
}

void IoLoop::Body::ready(uint32_t) noexcept {
    uint64_t count = 0;
    (void)!read(wakeUp, &count, sizeof(count));  // only to make it quiet; the jobs are fetched at the next turn
}

void IoLoop::Body::runPosted() {
    if (!hasPosted.load(std::memory_order_acquire)) return;
    JobList fetched;
    {
        const std::lock_guard lock(mutex);
        std::swap(fetched, posted);
        woken = false;
        hasPosted.store(false, std::memory_order_relaxed);
    }
    while (Job* job = fetched.pop()) job->run(job);
}

void IoLoop::Body::runDelayed() {
    if (delayed.empty()) return;
    const uint64_t now = steadyNow();
    for (size_t i = 0; i < delayed.size();) {  // a job may add another
        if (delayed[i].deadline > now) {
            ++i;
            continue;
        }
        Job* job = delayed[i].job;
        delayed.erase(delayed.begin() + static_cast<std::ptrdiff_t>(i));
        job->run(job);
    }
}

int IoLoop::Body::timeout() {
    if (hasPosted.load(std::memory_order_acquire)) return 0;
    if (delayed.empty()) return -1;
    uint64_t earliest = kNever;
    for (const Delayed& entry : delayed) earliest = std::min(earliest, entry.deadline);
    const uint64_t now = steadyNow();
    if (earliest <= now) return 0;
    const uint64_t milliseconds = (earliest - now + 999'999) / 1'000'000;
    return static_cast<int>(std::min<uint64_t>(milliseconds, INT_MAX));
}

void IoLoop::Body::serveEvents() {
    eventCount = epoll_wait(epoll, events, kEventsPerTurn, timeout());
    if (eventCount < 0 && errno != EINTR) abort();  // a descriptor of ours was closed under us
    for (eventIndex = 0; eventIndex < eventCount; ++eventIndex) {
        const epoll_event& event = events[eventIndex];
        if (event.data.ptr != nullptr) static_cast<IoWatcher*>(event.data.ptr)->ready(event.events);
    }
    eventCount = 0;
}

void IoLoop::Body::run() {
    onIoThread = true;
    for (;;) {
        runPosted();
        runDelayed();
        serveEvents();
    }
}

IoLoop::IoLoop() : body_(new Body) {}

IoLoop& IoLoop::shared() {
    start();
    return *theLoop;
}

bool IoLoop::watch(int fd, uint32_t events, IoWatcher* watcher) noexcept {
    return body_->control(EPOLL_CTL_ADD, fd, events, watcher);
}

bool IoLoop::change(int fd, uint32_t events, IoWatcher* watcher) noexcept {
    return body_->control(EPOLL_CTL_MOD, fd, events, watcher);
}

void IoLoop::ignore(int fd) noexcept {
    body_->control(EPOLL_CTL_DEL, fd, 0, nullptr);
}

void IoLoop::forget(int fd, IoWatcher* watcher) noexcept {
    body_->control(EPOLL_CTL_DEL, fd, 0, nullptr);
    for (int i = body_->eventIndex; i < body_->eventCount; ++i) {
        if (body_->events[i].data.ptr == watcher) body_->events[i].data.ptr = nullptr;
    }
}

void IoLoop::post(Job* job) noexcept {
    bool write = false;
    {
        const std::lock_guard lock(body_->mutex);
        body_->posted.push(job);
        body_->hasPosted.store(true, std::memory_order_release);
        write = !body_->woken && !onIoThread;  // the io thread looks again before it sleeps
        if (write) body_->woken = true;
    }
    if (!write) return;
    const uint64_t one = 1;
    (void)!::write(body_->wakeUp, &one, sizeof(one));  // cannot fail: the count stays far below its end
}

void IoLoop::postAt(dispatch_time_t deadline, Job* job) noexcept {
    try {
        body_->delayed.push_back({deadline, job});
    } catch (const std::bad_alloc&) {
        post(job);  // too early beats never
    }
}

void createIoLoop() {
    theLoop = new IoLoop;
}

IoLoop& createdIoLoop() {
    return *theLoop;
}

void startIoThread() {
    startVitalThread(
        "io", [] { theLoop->body_->run(); }, Signals::faultsOnly);
}

}  // namespace runtime
