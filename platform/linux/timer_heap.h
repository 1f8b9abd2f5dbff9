// Timer sources by deadline, earliest first; equal deadlines in order of arming.
//
// A 4-ary heap in one vector: a slot carries what is compared, so that moving about does not touch the sources but for
// their back-index, and four children share two cache lines. Not synchronised.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

struct dispatch_source_s;

namespace runtime {

class TimerHeap {
  public:
    static constexpr uint32_t kNowhere = ~uint32_t{0};

    struct Slot {
        uint64_t deadline;
        uint64_t order;
        dispatch_source_s* source;
    };

    /// Makes room for `count` sources in all, so that no later insert needs memory. False when there is none.
    [[nodiscard]] bool reserve(size_t count) noexcept;
    [[nodiscard]] bool empty() const { return slots_.empty(); }

    /// The source must not be in the heap. Allocates nothing within the reserved room.
    void insert(const Slot& slot) noexcept;

    /// False when the source was not in the heap.
    bool remove(dispatch_source_s* source) noexcept;

    /// Null when the heap is empty; valid until the next change.
    [[nodiscard]] const Slot* first() const { return slots_.empty() ? nullptr : slots_.data(); }

  private:
    void place(size_t position, const Slot& slot) noexcept;
    void moveUp(size_t position, const Slot& slot) noexcept;
    void moveDown(size_t position, const Slot& slot) noexcept;
    [[nodiscard]] size_t earliestChild(size_t position) const noexcept;

    std::vector<Slot> slots_;
};

}  // namespace runtime
