#include "platform/linux/timer_set.h"

#include <algorithm>
#include <array>
#include <new>

#include "platform/linux/timer_source.h"

namespace runtime {

namespace {

/// Tells a place among the later ones from one in the heap.
constexpr uint32_t kIsLater = uint32_t{1} << 31;

/// Enough for a horizon that is not far off the sixteenth it aims at; any horizon is right.
constexpr size_t kSamples = 64;
constexpr size_t kPartBroughtNear = 16;

uint32_t laterPlace(size_t index) {
    return static_cast<uint32_t>(index) | kIsLater;
}

}  // namespace

bool TimerSet::reserve(size_t count) noexcept {
    if (!near_.reserve(count)) return false;
    try {
        later_.reserve(near_.capacity());
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

void TimerSet::insert(dispatch_source_s* source) noexcept {
    if (source->deadline < horizon_) {
        if (!near_.empty()) {
            near_.insert({source->deadline, source->order, source});
            return;
        }
        horizon_ = source->deadline;  // nothing is before it
    }
    source->place = laterPlace(later_.size());
    later_.push_back({source->deadline, source});
}

bool TimerSet::remove(dispatch_source_s* source) noexcept {
    const uint32_t place = source->place;
    if (place == TimerHeap::kNowhere) return false;
    if ((place & kIsLater) == 0) return near_.remove(source);
    source->place = TimerHeap::kNowhere;
    removeLater(place & ~kIsLater);
    return true;
}

void TimerSet::removeLater(size_t index) noexcept {
    const Later last = later_.back();
    later_.pop_back();
    if (index == later_.size()) return;
    later_[index] = last;
    last.source->place = laterPlace(index);
}

dispatch_source_s* TimerSet::firstDue(uint64_t now) noexcept {
    if (near_.empty() && now < horizon_) return nullptr;
    dispatch_source_s* source = first();
    return source != nullptr && source->deadline <= now ? source : nullptr;
}

dispatch_source_s* TimerSet::first() noexcept {
    if (near_.empty()) {
        if (later_.empty()) return nullptr;
        bringNear();
    }
    return near_.first()->source;
}

/// Behind at least one of the later ones.
uint64_t TimerSet::chooseHorizon() const noexcept {
    std::array<uint64_t, kSamples> samples{};
    const size_t count = std::min(kSamples, later_.size());
    for (size_t i = 0; i < count; ++i) samples[i] = later_[i * later_.size() / count].deadline;
    const auto chosen = samples.begin() + static_cast<std::ptrdiff_t>(count / kPartBroughtNear);
    std::nth_element(samples.begin(), chosen, samples.begin() + static_cast<std::ptrdiff_t>(count));
    return *chosen + 1;  // none is armed for the end of time
}

void TimerSet::bringNear() noexcept {
    horizon_ = chooseHorizon();
    // Forwards, because what was armed in order of deadline goes into the heap without moving anything there.
    for (const Later& each : later_) {
        if (each.deadline < horizon_) near_.insert({each.deadline, each.source->order, each.source});
    }
    for (size_t index = later_.size(); index-- > 0;) {
        if (later_[index].deadline < horizon_) removeLater(index);
    }
}

}  // namespace runtime
