#include "scheduler/LGCDTimerIndex.h"

#include <iterator>
#include <utility>

void LGCDTimerIndex::Link(std::unique_ptr<LGCDTimer> timer) {
    timer->place = byText_.insert(timer.get());
    try {
        for (const LGCDSource& armed : timer->sources) bySource_.emplace(armed.source, timer.get());
    } catch (...) {
        ForgetSources(*timer);
        byText_.erase(timer->place);
        throw;
    }
    if (timers_.head != nullptr) timers_.head->previous = timer.get();
    timers_.Insert(timer.release());
}

std::unique_ptr<LGCDTimer> LGCDTimerIndex::Unlink(LGCDTimer* timer) noexcept {
    ForgetSources(*timer);
    byText_.erase(timer->place);
    if (timer->next != nullptr) timer->next->previous = timer->previous;
    (timer->previous != nullptr ? timer->previous->next : timers_.head) = timer->next;
    return std::unique_ptr<LGCDTimer>(timer);
}

LGCDTimer* LGCDTimerIndex::Find(const LGCDTimerTexts& texts) const {
    // Not equal_range, which walks over all that are equal: a whole application's, when no name is given.
    const auto behind = byText_.upper_bound(texts);
    if (behind == byText_.begin()) return nullptr;
    LGCDTimer* const newest = *std::prev(behind);
    return byText_.key_comp()(newest, texts) ? nullptr : newest;
}

LGCDTimer* LGCDTimerIndex::HolderOf(dispatch_source_s* source) const {
    const auto found = bySource_.find(source);
    return found == bySource_.end() ? nullptr : found->second;
}

void LGCDTimerIndex::Swap(LGCDTimerIndex& other) noexcept {
    std::swap(timers_.head, other.timers_.head);
    byText_.swap(other.byText_);
    bySource_.swap(other.bySource_);
}

void LGCDTimerIndex::ForgetSources(LGCDTimer& timer) noexcept {
    for (const LGCDSource& armed : timer.sources) bySource_.erase(armed.source);
}
