#include "platform/linux/timer_heap.h"

#include <algorithm>
#include <new>

#include "platform/linux/timer_source.h"

namespace runtime {

namespace {

constexpr size_t kChildren = 4;
constexpr size_t kSmallestRoom = 16;

bool isEarlier(const TimerHeap::Slot& one, const TimerHeap::Slot& other) {
    return one.deadline != other.deadline ? one.deadline < other.deadline : one.order < other.order;
}

}  // namespace

bool TimerHeap::reserve(size_t count) noexcept {
    if (count <= slots_.capacity()) return true;
    try {
        slots_.reserve(std::max({count, slots_.capacity() + slots_.capacity() / 2, kSmallestRoom}));
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

void TimerHeap::insert(const Slot& slot) noexcept {
    slots_.push_back(slot);
    moveUp(slots_.size() - 1, slot);
}

bool TimerHeap::remove(dispatch_source_s* source) noexcept {
    const size_t position = source->place;
    if (position == kNowhere) return false;
    source->place = kNowhere;
    const Slot last = slots_.back();
    slots_.pop_back();
    if (position == slots_.size()) return true;
    if (position > 0 && isEarlier(last, slots_[(position - 1) / kChildren])) {
        moveUp(position, last);
    } else {
        moveDown(position, last);
    }
    return true;
}

void TimerHeap::place(size_t position, const Slot& slot) noexcept {
    slots_[position] = slot;
    slot.source->place = static_cast<uint32_t>(position);
}

void TimerHeap::moveUp(size_t position, const Slot& slot) noexcept {
    while (position > 0) {
        const size_t parent = (position - 1) / kChildren;
        if (!isEarlier(slot, slots_[parent])) break;
        place(position, slots_[parent]);
        position = parent;
    }
    place(position, slot);
}

size_t TimerHeap::earliestChild(size_t position) const noexcept {
    const size_t begin = position * kChildren + 1;
    const size_t end = std::min(begin + kChildren, slots_.size());
    size_t earliest = begin;
    for (size_t child = begin + 1; child < end; ++child) {
        if (isEarlier(slots_[child], slots_[earliest])) earliest = child;
    }
    return earliest;
}

void TimerHeap::moveDown(size_t position, const Slot& slot) noexcept {
    for (;;) {
        const size_t child = earliestChild(position);
        if (child >= slots_.size() || !isEarlier(slots_[child], slot)) break;
        place(position, slots_[child]);
        position = child;
    }
    place(position, slot);
}

}  // namespace runtime
