// What the platform's handlers hold of an endpoint: not the endpoint itself, which may be gone when they run, but this
// counted link with the endpoint's gate in it.
//
// The count is our own and not a shared_ptr's so that a block can carry the link as a plain pointer: a std::function
// with two plain words in it needs no memory of its own, and one such block is made per reply.
#pragma once

#include <atomic>
#include <utility>

#include <platform_gate.h>

class LXPCBase;

struct LXPCEndpointLink {
    explicit LXPCEndpointLink(LXPCBase& owner) : endpoint(owner) {}

    LXPCBase& endpoint;  // only behind the gate
    PlatformGate gate;
    std::atomic<unsigned> references{1};
};

/// One reference to a link.
class LXPCEndpointReference {
  public:
    explicit LXPCEndpointReference(LXPCBase& endpoint) : link_(new LXPCEndpointLink(endpoint)) {}
    LXPCEndpointReference(const LXPCEndpointReference& other) : link_(other.link_) {
        link_->references.fetch_add(1, std::memory_order_relaxed);
    }
    LXPCEndpointReference& operator=(const LXPCEndpointReference&) = delete;
    ~LXPCEndpointReference() {
        if (link_ == nullptr) return;
        if (link_->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete link_;
    }

    /// The reference as a plain pointer, for a block that runs exactly once and takes it back with `adopt`.
    [[nodiscard]] LXPCEndpointLink* handOver() { return std::exchange(link_, nullptr); }
    [[nodiscard]] static LXPCEndpointReference adopt(LXPCEndpointLink* link) { return LXPCEndpointReference(link); }

    LXPCEndpointLink& operator*() const { return *link_; }
    LXPCEndpointLink* operator->() const { return link_; }
    [[nodiscard]] LXPCEndpointLink* get() const { return link_; }

  private:
    explicit LXPCEndpointReference(LXPCEndpointLink* link) : link_(link) {}

    LXPCEndpointLink* link_;
};
