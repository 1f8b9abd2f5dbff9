// Where timer sources lie: in slots of blocks that are aligned to their size, with room for a deadline for each slot
// apart from the slots. Who knows a source thus knows its deadline's place without having touched the source, and who
// goes through the deadlines finds them one behind the other.
//
// The first block has pages of the usual size, of which only those in use take memory. Further ones, of which there
// are none below some fifteen thousand sources, ask for one large page each, so that a source picked at random among a
// million costs a shorter walk through page tables. A block whose last slot has come back is given back to the system.
//
// SourceMemory is not synchronised. SpareSlots keeps a few slots for each thread, so that most sources are made and
// freed without a lock, and blocks do not come and go with single sources.
#pragma once

#include <cstddef>
#include <cstdint>

struct dispatch_source_s;

namespace runtime {

/// What a slot holds while no source is in it; under the address sanitizer the rest of it is poisoned.
struct FreeSlot {
    FreeSlot* next;
};

/// The head of a block. The deadlines follow, which a new block has at zero, then the slots.
class SourceBlock {
  public:
    static constexpr size_t kBytes = size_t{2} << 20;  // a large page of most 64-bit processors
    static constexpr size_t kSlotBytes = 128;          // two cache lines, which are often fetched together
    static constexpr size_t kHeadBytes = 64;
    static constexpr size_t kBytesPerSource = kSlotBytes + sizeof(uint64_t);

    static SourceBlock& of(const void* slot) {
        return *reinterpret_cast<SourceBlock*>(reinterpret_cast<uintptr_t>(slot) & ~(kBytes - 1));
    }
    /// A number of the owner's for the slot, 0 at first. Computed from the address alone.
    static uint64_t& deadlineOf(const void* slot) {
        return of(slot).deadlines()[(reinterpret_cast<uintptr_t>(slot) % kBytes - kFirstSlot) / kSlotBytes];
    }

    uint64_t* deadlines() { return reinterpret_cast<uint64_t*>(reinterpret_cast<char*>(this) + kHeadBytes); }
    void* slot(size_t index) { return reinterpret_cast<char*>(this) + kFirstSlot + index * kSlotBytes; }

    /// How many slots, counted from the first, have ever been handed out.
    [[nodiscard]] size_t reached() const { return reached_; }
    [[nodiscard]] SourceBlock* next() const { return next_; }

  private:
    friend class SourceMemory;
    static constexpr size_t kSlots = (kBytes - kHeadBytes) / kBytesPerSource;
    static constexpr size_t kFirstSlot = kBytes - kSlots * kSlotBytes;

    SourceBlock() = default;
    [[nodiscard]] bool isFull() const { return free_ == nullptr && reached_ == kSlots; }
    FreeSlot* take();
    void give(FreeSlot* slot);

    SourceBlock* next_ = nullptr;
    SourceBlock* nextWithRoom_ = nullptr;
    FreeSlot* free_ = nullptr;  // among the slots that were reached
    size_t reached_ = 0;
    size_t used_ = 0;
};

class SourceMemory {
  public:
    SourceMemory() = default;
    SourceMemory(const SourceMemory&) = delete;
    SourceMemory& operator=(const SourceMemory&) = delete;

    /// Up to `most` slots, linked, at least one; null when memory is out.
    [[nodiscard]] FreeSlot* take(size_t most) noexcept;
    void give(FreeSlot* slots) noexcept;

    /// Linked by next().
    [[nodiscard]] SourceBlock* blocks() const { return blocks_; }
    /// How many slots there are in all blocks.
    [[nodiscard]] size_t slots() const { return slots_; }

  private:
    bool addBlock() noexcept;
    void dropBlock(SourceBlock* block) noexcept;

    SourceBlock* blocks_ = nullptr;
    SourceBlock* withRoom_ = nullptr;
    size_t slots_ = 0;
};

/// The calling thread's slots. What it has too many, and all of them when it ends, goes back to the timer service's
/// memory, from where it also comes.
struct SpareSlots {
    /// Room for a source; null when memory is out.
    [[nodiscard]] static void* take() noexcept;
    static void give(void* slot) noexcept;
};

}  // namespace runtime
