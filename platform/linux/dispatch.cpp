// The public face of queues.
#include <dispatch/dispatch.h>

#include <atomic>
#include <utility>

#include "platform/linux/main_queue.h"
#include "platform/linux/runtime.h"
#include "platform/linux/worker_pool.h"

namespace {

/// A queue that lives by its references; each block that waits in it holds one.
class CreatedQueue final : public runtime::SerialQueue {
  public:
    CreatedQueue() : SerialQueue(nullptr) {}

    void retain() noexcept override { references_.fetch_add(1, std::memory_order_relaxed); }

    void release() noexcept override {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

  private:
    std::atomic<unsigned> references_{1};
};

struct BlockJob final : runtime::Job {
    BlockJob(dispatch_queue_t target, dispatch_block_t work) : Job(perform), block(std::move(work)), queue(target) {
        queue->retain();
    }

    static void perform(Job* job) {
        auto* self = static_cast<BlockJob*>(job);
        runtime::runGuarded(self->block);
        dispatch_queue_t queue = self->queue;
        delete self;
        queue->release();
    }

    dispatch_block_t block;
    dispatch_queue_t queue;
};

}  // namespace

dispatch_queue_t dispatch_get_main_queue() {
    return &runtime::MainQueue::shared();
}

dispatch_queue_t dispatch_get_global_queue(long priority, unsigned long flags) {
    if (priority != DISPATCH_QUEUE_PRIORITY_DEFAULT || flags != 0) return nullptr;
    return &runtime::WorkerPool::shared();
}

dispatch_queue_t dispatch_queue_create(const char*, void*) {
    return new CreatedQueue;
}

void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) {
    queue->post(new BlockJob(queue, std::move(block)));
}

void dispatch_retain(dispatch_queue_t queue) {
    queue->retain();
}

void dispatch_release(dispatch_queue_t queue) {
    queue->release();
}

void dispatch_main() {
    runtime::serveMainQueue();
}
