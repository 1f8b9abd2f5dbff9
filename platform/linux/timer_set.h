// The armed timer sources, earliest first; equal deadlines in order of arming.
//
// In two parts. Sources that are due before the `horizon` lie in a heap; all later ones, nearly all of them as a rule,
// lie unsorted in a vector, where arming is an append and cancelling moves the last one into the gap: neither grows
// with their number nor touches other sources than that last one, which is likely to be in a cache. Only when the heap
// has run empty is a new horizon chosen, such that about a sixteenth of the later ones comes before it and moves over.
// So each firing pays for looking at about sixteen entries that lie one behind the other, and for the heap.
//
// A source's place in either part is kept in the source. Not synchronised.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/linux/timer_heap.h"

namespace runtime {

class TimerSet {
  public:
    /// Makes room for `count` sources in all, so that no later insert needs memory. False when there is none.
    [[nodiscard]] bool reserve(size_t count) noexcept;
    /// How many sources there is room for.
    [[nodiscard]] size_t room() const { return later_.capacity(); }

    /// The source must not be in the set; its deadline and order must stay as they are while it is. Allocates nothing
    /// within the reserved room.
    void insert(dispatch_source_s* source) noexcept;

    /// False when the source was not in the set.
    bool remove(dispatch_source_s* source) noexcept;

    /// The first source, if it is due at `now`, else null.
    [[nodiscard]] dispatch_source_s* firstDue(uint64_t now) noexcept;

    /// Null when the set is empty. May choose a new horizon, which takes time in proportion to the set; firstDue does
    /// so only if something may be due beyond the old one.
    [[nodiscard]] dispatch_source_s* first() noexcept;

  private:
    struct Later {
        uint64_t deadline;
        dispatch_source_s* source;
    };

  public:
    /// What a source costs here, beside itself.
    static constexpr size_t kBytesPerSource = sizeof(TimerHeap::Slot) + sizeof(Later);

  private:
    void removeLater(size_t index) noexcept;
    [[nodiscard]] uint64_t chooseHorizon() const noexcept;
    void bringNear() noexcept;

    TimerHeap near_;            // all before the horizon
    std::vector<Later> later_;  // none before the horizon
    uint64_t horizon_ = ~uint64_t{0};
};

}  // namespace runtime
