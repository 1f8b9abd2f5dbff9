// The owner of a service's name: accepts peers on the io thread and hands them, suspended and without a handler, to its
// own handler.
//
// Processes of other users are closed before any handler hears of them, root's included: the directory keeps them out
// already, and what a peer can bring about (a refusal above may end the process) is for the user's own alone.
//
// It accepts only while the process has `spareDescriptors` left besides: the store, /proc and launching need them more
// than one more peer does. Otherwise it leaves the epoll, where an unaccepted peer would keep the loop spinning, until
// one of its peers is closed or a tenth of a second has passed. Of a crowd that had to wait, those that have gone
// without a word are closed at once and no handler hears of them: each would hold up the others for two changes of
// thread.
#pragma once

#include "platform/linux/service_name.h"
#include "platform/linux/xpc_endpoint.h"

namespace transport {

class Listener final : public Endpoint, private runtime::IoWatcher {
  public:
    static constexpr int spareDescriptors = 16;

    /// Null when the name cannot be had. Throws std::bad_alloc.
    static Listener* offering(const char* name, dispatch_queue_t queue);

    /// A peer's socket was closed. From any thread.
    void descriptorFreed() noexcept;

    void send(Dictionary& message) override;
    void sendWithReply(Dictionary& message, dispatch_queue_t queue, xpc_handler_t handler) override;
    [[nodiscard]] pid_t pid() const noexcept override;
    [[nodiscard]] uid_t euid() const noexcept override;

  private:
    explicit Listener(dispatch_queue_t queue);
    ~Listener() { offer_.withdraw(); }
    void destroy() noexcept override { delete this; }

    void evaluate() noexcept override;
    void ready(uint32_t events) noexcept override;
    enum class Accepted { One, NoneWaiting, NoRoom };
    Accepted acceptOne() noexcept;
    void welcome(UniqueFd socket) noexcept;
    void unwatch() noexcept;
    void waitForRoom() noexcept;
    void end() noexcept;
    static void announce(runtime::Job* job);
    static void runRetry(runtime::Job* job);

    ServiceOffer offer_;
    EndpointJob retryJob_;
    std::atomic<bool> waitingForRoom_{false};

    // The io thread's.
    bool watched_ = false;
    bool retryPosted_ = false;
    bool crowded_ = false;  // since room was wanting, no accept has found nobody waiting
    bool over_ = false;
};

}  // namespace transport
