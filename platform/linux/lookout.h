// Where a thread of the runtime that has nothing to do waits for work and for messages at once.
//
// Most of what a short message costs is the waking of threads. So the sockets of a process are watched at a lookout:
// the thread that waits there, an idle worker or the main queue's, reads what comes in and does what it asks for
// itself, while the io thread sleeps on.
//
// Whoever leaves the lookout for a job is back soon as a rule, and what has come in meanwhile is found then; to wake
// another thread for it would cost more than the job. Nothing depends on that rule: when the lookout has been empty for
// more than a millisecond, or its thread says that it is going to block, the io thread relieves it. It then watches the
// lookout as it does a descriptor, makes the same glances and hands on what comes in, until somebody is back on watch.
// An alarm tells it when, set only where none is set yet: at most one wake-up in a millisecond, and none once all is
// quiet.
//
// What a watcher does in a glance must not block and runs no project code. Glances happen one at a time, on whatever
// thread; the io thread keeps them off, with a Pause, while it touches what is watched here.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "platform/linux/runtime.h"
#include "platform/linux/unique_fd.h"

namespace runtime {

class Lookout {
  public:
    class Watcher {
      public:
        /// The descriptor is ready, or was.
        virtual void glance() noexcept = 0;

      protected:
        ~Watcher() = default;
    };

    /// Where a descriptor stands in its lookout.
    struct Post {
        int fd = -1;  // -1: nowhere
        uint32_t index = 0;
        [[nodiscard]] bool taken() const { return fd >= 0; }
    };

    /// No glance happens while it lives. Takes null for no lookout.
    class Pause {
      public:
        explicit Pause(Lookout* lookout) : mutex_(lookout != nullptr ? &lookout->mutex_ : nullptr) {
            if (mutex_ != nullptr) mutex_->lock();
        }
        ~Pause() {
            if (mutex_ != nullptr) mutex_->unlock();
        }
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;

      private:
        std::mutex* const mutex_;
    };

    /// The one of the workers and the one of the main queue, each made when it is first asked for and never destroyed.
    /// Null when memory is out, or where the process may open so few descriptors (64 or less) that it needs them all
    /// for its peers: then the io thread serves everything.
    static Lookout* ofWorkers() noexcept;
    static Lookout* ofMainQueue() noexcept;
    /// The main queue's, if it has been asked for.
    static Lookout* ofMainQueueIfMade() noexcept;

    /// Watches `fd` for input; false when the system refuses. In a pause.
    bool watch(int fd, Watcher* watcher, Post* post) noexcept;

    /// After it the watcher is not called again. In a pause, or in the watcher's own glance. No matter if not taken.
    void forget(Post* post) noexcept;

    /// Whether anything was ever watched here: if not, a bed is cheaper to be woken from.
    [[nodiscard]] bool isUseful() const { return useful_.load(std::memory_order_relaxed); }

    // By one thread at a time.

    /// The calling thread is on watch from here on, until it leaves.
    void take() noexcept;
    void leave() noexcept;
    /// On watch: sleeps until something is ready or somebody rings, and calls the watchers. May return for no reason.
    /// Never returns once the ending has begun.
    void wait() noexcept;

    // From any thread.

    /// Ends a wait of whoever is on watch, the present one or the next. The ring before somebody came may be lost: look
    /// for work after `take`.
    void ring() noexcept;
    /// The io thread takes over now, unless somebody is on watch.
    void relieve() noexcept;

    Lookout(const Lookout&) = delete;
    Lookout& operator=(const Lookout&) = delete;

  private:
    struct Place {
        Watcher* watcher = nullptr;  // null: free
        uint32_t user = 0;           // rises with each use, so that an event of the last one is known
        uint32_t nextFree = none;
    };
    static constexpr uint32_t none = ~uint32_t{0};

    struct Relief final : IoWatcher {
        explicit Relief(Lookout* served) : lookout(served) {}
        void ready(uint32_t) noexcept override { lookout->serveInRelief(); }
        Lookout* const lookout;
    };
    struct Alarm final : IoWatcher {
        explicit Alarm(Lookout* served) : lookout(served) {}
        void ready(uint32_t) noexcept override { lookout->alarmed(); }
        Lookout* const lookout;
    };

    explicit Lookout(IoLoop& loop) : loop_(loop), relief_(this), alarm_(this) {}
    static Lookout* make(std::atomic<Lookout*>& made) noexcept;
    [[nodiscard]] bool open() noexcept;
    void serve(int timeout) noexcept;
    void serveInRelief() noexcept;
    void setAlarm() noexcept;
    void alarmed() noexcept;
    [[nodiscard]] bool isEmpty() const { return moves_.load() % 2 != 0; }

    IoLoop& loop_;
    UniqueFd epoll_;
    UniqueFd bell_;
    UniqueFd timer_;

    std::mutex mutex_;
    std::vector<Place> places_;
    uint32_t firstFree_ = none;

    // Sequentially consistent: of an alarm and a thread that goes, one sees the other.
    std::atomic<uint64_t> moves_{1};  // how often anybody came or went; odd while nobody is there
    std::atomic<uint64_t> movesAtAlarm_{0};
    std::atomic<bool> alarmSet_{false};
    std::atomic<bool> useful_{false};
    std::mutex reliefMutex_;  // nobody comes meanwhile
    bool relieved_ = false;   // guarded by it
    Relief relief_;
    Alarm alarm_;
};

}  // namespace runtime
