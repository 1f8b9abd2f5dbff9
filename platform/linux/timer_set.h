// The armed timer sources, earliest first; equal deadlines in order of arming.
//
// In two parts. Sources that are due before the `horizon` lie in a heap; all later ones, nearly all of them as a rule,
// stay where they are, and their deadlines are noted beside their slots: neither arming nor cancelling grows with their
// number or touches another source. Only when the heap has run empty is a new horizon chosen, such that about a
// sixteenth of the later ones comes before it and moves over, or nearly all if they are few. So each firing pays for
// looking at about sixteen deadlines that lie one behind the other, and for the heap. Where most of
// the slots that were once used lie idle, it pays for up to a block of them for each source that is left.
//
// A place in the heap is kept in the source. Not synchronised.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/linux/timer_heap.h"
#include "platform/linux/timer_memory.h"

namespace runtime {

class TimerSet {
  public:
    /// Every source of the set lies in `memory`.
    explicit TimerSet(const SourceMemory& memory) : memory_(memory) {}

    /// Makes room for `count` sources in all, so that no later insert needs memory. False when there is none.
    [[nodiscard]] bool reserve(size_t count) noexcept { return near_.reserve(count); }

    /// The source must not be in the set; its deadline and order must stay as they are while it is. Allocates nothing
    /// within the reserved room.
    void insert(dispatch_source_s* source) noexcept;

    /// False when the source was not in the set.
    bool remove(dispatch_source_s* source) noexcept;

    /// The first source, if it is due at `now`, else null.
    [[nodiscard]] dispatch_source_s* firstDue(uint64_t now) noexcept;

    /// Null when the set is empty. May choose a new horizon, which takes time in proportion to the slots that were ever
    /// used; firstDue does so only if something may be due beyond the old one.
    [[nodiscard]] dispatch_source_s* first() noexcept;

    /// What a source costs here and in its block.
    static constexpr size_t kBytesPerSource = sizeof(TimerHeap::Slot) + SourceBlock::kBytesPerSource;

    /// Has the source's note on its way to a cache that `remove` will want it in.
    static void prefetch(const dispatch_source_s* source) { __builtin_prefetch(&SourceBlock::deadlineOf(source), 1); }

  private:
    template <typename Look>
    void lookAtLater(Look look) const;
    [[nodiscard]] uint64_t chooseHorizon() const noexcept;
    void bringNear() noexcept;

    const SourceMemory& memory_;
    TimerHeap near_;         // all before the horizon
    size_t laterCount_ = 0;  // sources with a deadline beside their slot; none before the horizon
    uint64_t horizon_ = ~uint64_t{0};
};

}  // namespace runtime
