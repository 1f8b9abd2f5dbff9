#include "scheduler/LGCDTimerIndex.h"

#include <cstdint>
#include <utility>

namespace {

/// Addresses are far apart and even, so their low bits say little.
size_t HashOf(const dispatch_source_s* source) {
    const uint64_t product = (reinterpret_cast<uintptr_t>(source) >> 4) * uint64_t{0x9E3779B97F4A7C15};
    return static_cast<size_t>(product >> 32);
}

}  // namespace

void LGCDTimerIndex::Reserve(size_t timers) {
    byTexts_.Reserve(timers);
    byApplication_.Reserve(timers);
    bySource_.Reserve(timers);
}

void LGCDTimerIndex::Link(std::unique_ptr<LGCDTimer> timer) {
    size_t sources = 0;
    for ([[maybe_unused]] const LGCDSource& armed : timer->sources) ++sources;
    byTexts_.Reserve(1);
    byApplication_.Reserve(1);
    bySource_.Reserve(sources);

    const LGCDTimerHashes hashes(timer->Texts());
    byTexts_.Insert(timer.get(), hashes.all);
    byApplication_.Insert(timer.get(), hashes.application);
    for (LGCDSource& armed : timer->sources) {
        armed.holder = timer.get();
        bySource_.Insert(&armed, HashOf(armed.source));
    }
    timer->previous = nullptr;
    if (timers_.head != nullptr) timers_.head->previous = timer.get();
    timers_.Insert(timer.release());
}

std::unique_ptr<LGCDTimer> LGCDTimerIndex::Unlink(LGCDTimer* timer) noexcept {
    for (LGCDSource& armed : timer->sources) bySource_.Remove(&armed);
    byApplication_.Remove(timer);
    byTexts_.Remove(timer);
    if (timer->next != nullptr) timer->next->previous = timer->previous;
    (timer->previous != nullptr ? timer->previous->next : timers_.head) = timer->next;
    return std::unique_ptr<LGCDTimer>(timer);
}

LGCDTimer* LGCDTimerIndex::Find(const LGCDTimerTexts& texts) const {
    const LGCDTimerHashes hashes(texts);
    const auto matches = [&texts](const LGCDTimer& timer) { return timer.Matches(texts); };
    return texts.skedName == nullptr ? byApplication_.Find(hashes.application, matches)
                                     : byTexts_.Find(hashes.all, matches);
}

LGCDTimer* LGCDTimerIndex::HolderOf(dispatch_source_s* source) const {
    const LGCDSource* const found =
        bySource_.Find(HashOf(source), [source](const LGCDSource& armed) { return armed.source == source; });
    return found == nullptr ? nullptr : found->holder;
}

void LGCDTimerIndex::TakeOver(LGCDTimerIndex& other) {
    byTexts_.Reserve(other.byTexts_.Count());
    byApplication_.Reserve(other.byApplication_.Count());
    bySource_.Reserve(other.bySource_.Count());

    LGCDTimer* oldest = other.timers_.head;
    while (oldest != nullptr && oldest->next != nullptr) oldest = oldest->next;
    while (oldest != nullptr) {
        LGCDTimer* const newer = oldest->previous;
        Link(other.Unlink(oldest));
        oldest = newer;
    }
}

void LGCDTimerIndex::Swap(LGCDTimerIndex& other) noexcept {
    std::swap(timers_.head, other.timers_.head);
    byTexts_.Swap(other.byTexts_);
    byApplication_.Swap(other.byApplication_);
    bySource_.Swap(other.bySource_);
}

void LGCDTimerIndex::PrepareUnlink(const LGCDTimer& timer) noexcept {
    decltype(byTexts_)::PrepareRemoval(timer);
    decltype(byApplication_)::PrepareRemoval(timer);
    for (const LGCDSource& armed : timer.sources) decltype(bySource_)::PrepareRemoval(armed);
}
