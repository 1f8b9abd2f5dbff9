#include "platform/linux/timer_set.h"

#include <algorithm>
#include <array>

#include "platform/linux/timer_source.h"

namespace runtime {

namespace {

/// Beside the slot of a source that is not among the later ones. No deadline is 0.
constexpr uint64_t kNotLater = 0;

/// Enough for a horizon that is not far off the sixteenth it aims at; any horizon is right.
constexpr size_t kSamples = 64;
constexpr size_t kPartBroughtNear = 16;

/// Up to so many later ones nearly all are brought near: a heap of so many is shallow.
constexpr size_t kFew = 1024;

}  // namespace

void TimerSet::insert(dispatch_source_s* source) noexcept {
    if (source->deadline < horizon_) {
        if (!near_.empty()) {
            near_.insert({source->deadline, source->order, source});
            return;
        }
        horizon_ = source->deadline;  // nothing is before it
    }
    SourceBlock::deadlineOf(source) = source->deadline;
    ++laterCount_;
}

bool TimerSet::remove(dispatch_source_s* source) noexcept {
    uint64_t& later = SourceBlock::deadlineOf(source);
    if (later == kNotLater) return near_.remove(source);
    later = kNotLater;
    --laterCount_;
    return true;
}

dispatch_source_s* TimerSet::firstDue(uint64_t now) noexcept {
    if (near_.empty() && now < horizon_) return nullptr;
    dispatch_source_s* source = first();
    return source != nullptr && source->deadline <= now ? source : nullptr;
}

dispatch_source_s* TimerSet::first() noexcept {
    if (near_.empty()) {
        if (laterCount_ == 0) return nullptr;
        bringNear();
    }
    return near_.first()->source;
}

/// Calls `look` with the deadline of each later one, which it may change, and with the source's slot.
template <typename Look>
void TimerSet::lookAtLater(Look look) const {
    for (SourceBlock* block = memory_.blocks(); block != nullptr; block = block->next()) {
        uint64_t* deadlines = block->deadlines();
        for (size_t index = 0; index < block->reached(); ++index) {
            if (deadlines[index] != kNotLater) look(deadlines[index], block->slot(index));
        }
    }
}

/// Behind at least one of the later ones.
uint64_t TimerSet::chooseHorizon() const noexcept {
    std::array<uint64_t, kSamples> samples{};
    const size_t count = std::min(kSamples, laterCount_);
    size_t taken = 0, passed = 0;
    lookAtLater([&](uint64_t deadline, void*) {
        if (taken < count && passed++ == taken * laterCount_ / count) samples[taken++] = deadline;
    });
    const size_t rank = laterCount_ <= kFew ? count - 1 : count / kPartBroughtNear;
    const auto chosen = samples.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(samples.begin(), chosen, samples.begin() + static_cast<std::ptrdiff_t>(count));
    return *chosen + 1;  // none is armed for the end of time
}

void TimerSet::bringNear() noexcept {
    horizon_ = chooseHorizon();
    // What was armed in order of deadline mostly goes into the heap without moving anything there.
    lookAtLater([&](uint64_t& deadline, void* slot) {
        if (deadline >= horizon_) return;
        auto* source = static_cast<dispatch_source_s*>(slot);
        near_.insert({deadline, source->order, source});
        deadline = kNotLater;
        --laterCount_;
    });
}

}  // namespace runtime
