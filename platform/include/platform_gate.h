// A gate keeps an object alive for those who are inside it, without keeping it alive for ever.
//
// Handlers that run on other threads (a connection's events, a timer's firing) need the endpoint or the scheduler that
// installed them. They capture a shared gate instead of trusting a bare pointer: they pass it before they touch the
// object, and the object's owner closes it before the object goes. Closing refuses newcomers and waits for those
// inside; a thread that closes a gate which it has itself passed does not wait for itself.
//
//     void Handler() {                                 Owner::~Owner() {
//         PlatformGate::Pass pass(*gate);                  gate->close();
//         if (!pass) return;                               // nobody is inside, nobody will come
//         owner->Work();                               }
//     }
//
// Passes nest and are released in reverse order, on the thread that took them. A thread that parks for good because the
// process is ending (platform_exit) gives up every pass that it holds, so that nobody waits for it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

class PlatformGate {
  public:
    PlatformGate() = default;
    PlatformGate(const PlatformGate&) = delete;
    PlatformGate& operator=(const PlatformGate&) = delete;

    /// Refuses newcomers from now on and returns when nobody but the calling thread is inside. Idempotent.
    void close();

    /// A visit: true when the gate was open. Lives on the stack of one thread.
    class Pass {
      public:
        explicit Pass(PlatformGate& gate);
        ~Pass();
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;
        explicit operator bool() const { return gate_ != nullptr; }

        /// Gives up every pass that the calling thread holds; for a thread that never goes on.
        static void abandonAllOfThisThread();

      private:
        friend class PlatformGate;
        PlatformGate* gate_;
        Pass* outer_;  // the pass that this thread took before, whatever its gate
    };

  private:
    static constexpr unsigned kClosed = 1, kOneInside = 2;

    bool enter();
    void leave();

    std::atomic<unsigned> visits_{0};  // who is inside, in units of kOneInside; and kClosed, once and for all
    std::mutex mutex_;                 // with kClosed set, over every step of the others out of the gate
    std::condition_variable empty_;
};
