#include "scheduler/LGCDRetry.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>

namespace {

constexpr long kFirstPause = 1;
constexpr long kLongestPause = 64;

}  // namespace

void LGCDRetry::Start(dispatch_block_t attempt) {
    if (source_ != nullptr) return;
    dispatch_source_s* const created = dispatch_source_create(
        DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0));
    if (created == nullptr) throw std::bad_alloc();
    dispatch_source_set_event_handler(created, std::move(attempt));
    dispatch_resume(created);
    source_.reset(new (std::nothrow) LGCDSource(created));
    if (source_ == nullptr) {
        dispatch_source_cancel(created);
        dispatch_release(created);
        throw std::bad_alloc();
    }
    pause_ = kFirstPause;
    Arm();
}

void LGCDRetry::Again() noexcept {
    pause_ = std::min(pause_ * 2, kLongestPause);
    if (source_ != nullptr) Arm();
}

void LGCDRetry::Arm() noexcept {
    const dispatch_time_t start = dispatch_time(DISPATCH_TIME_NOW, int64_t{pause_} * 1000000000);
    dispatch_source_set_timer(source_->source, start, DISPATCH_TIME_FOREVER, 0);
}
