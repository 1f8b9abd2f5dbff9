#include "platform/linux/timer_memory.h"

#include <pthread.h>
#include <sys/mman.h>

#include <new>
#include <optional>

#include "platform/linux/timer_service.h"

#ifdef __SANITIZE_ADDRESS__
#define PLATFORM_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define PLATFORM_ADDRESS_SANITIZER
#endif
#endif
#ifdef PLATFORM_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#include <sanitizer/lsan_interface.h>
#endif

namespace runtime {

namespace {

/// Slots that go between a thread and all others at once: enough that the lock counts little. A thread keeps up to
/// two handfuls, each slot perhaps of another block, which stays mapped for it.
constexpr size_t kHandful = 8;

/// Zeroed, and aligned to its size; null when memory is out.
void* mapBlock() {
    constexpr size_t bytes = SourceBlock::kBytes;
    void* wide = mmap(nullptr, 2 * bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (wide == MAP_FAILED) return nullptr;
    char* begin = static_cast<char*>(wide);
    const size_t before = (bytes - reinterpret_cast<uintptr_t>(begin) % bytes) % bytes;
    if (before != 0) munmap(begin, before);
    munmap(begin + before + bytes, bytes - before);
    return begin + before;
}

// The address sanitizer is told which slots are free, and the leak checker to look into blocks: what handlers own lies
// in the common heap.
#ifdef PLATFORM_ADDRESS_SANITIZER
void poison(FreeSlot* slot) {
    ASAN_POISON_MEMORY_REGION(slot + 1, SourceBlock::kSlotBytes - sizeof(FreeSlot));
}
void unpoison(void* slot) {
    ASAN_UNPOISON_MEMORY_REGION(slot, SourceBlock::kSlotBytes);
}
void blockMapped(void* block) {
    __lsan_register_root_region(block, SourceBlock::kBytes);
}
void blockUnmaps(void* block) {
    __lsan_unregister_root_region(block, SourceBlock::kBytes);
    ASAN_UNPOISON_MEMORY_REGION(block, SourceBlock::kBytes);
}
#else
void poison(FreeSlot*) {}
void unpoison(void*) {}
void blockMapped(void*) {}
void blockUnmaps(void*) {}
#endif

static_assert(sizeof(SourceBlock) <= SourceBlock::kHeadBytes);

}  // namespace

// ---- Blocks

FreeSlot* SourceBlock::take() {
    ++used_;
    FreeSlot* slot = free_;
    if (slot == nullptr) return new (this->slot(reached_++)) FreeSlot{nullptr};
    free_ = slot->next;
    return slot;
}

void SourceBlock::give(FreeSlot* slot) {
    slot->next = free_;
    free_ = slot;
    --used_;
}

FreeSlot* SourceMemory::take(size_t most) noexcept {
    if (withRoom_ == nullptr && !addBlock()) return nullptr;
    SourceBlock& block = *withRoom_;
    FreeSlot* first = nullptr;
    FreeSlot** end = &first;
    for (size_t count = 0; count < most && !block.isFull(); ++count) {
        *end = block.take();
        end = &(*end)->next;
    }
    *end = nullptr;
    if (block.isFull()) withRoom_ = block.nextWithRoom_;
    return first;
}

void SourceMemory::give(FreeSlot* slots) noexcept {
    while (FreeSlot* slot = slots) {
        slots = slot->next;
        SourceBlock& block = SourceBlock::of(slot);
        if (block.isFull()) {
            block.nextWithRoom_ = withRoom_;
            withRoom_ = &block;
        }
        block.give(slot);
        if (block.used_ == 0) dropBlock(&block);
    }
}

bool SourceMemory::addBlock() noexcept {
    void* memory = mapBlock();
    if (memory == nullptr) return false;
    // A wish; the system may refuse it.
    madvise(memory, SourceBlock::kBytes, blocks_ == nullptr ? MADV_NOHUGEPAGE : MADV_HUGEPAGE);
    blockMapped(memory);
    auto* block = new (memory) SourceBlock;
    block->next_ = blocks_;
    blocks_ = withRoom_ = block;
    slots_ += SourceBlock::kSlots;
    return true;
}

void SourceMemory::dropBlock(SourceBlock* block) noexcept {
    SourceBlock** link = &blocks_;
    while (*link != block) link = &(*link)->next_;
    *link = block->next_;
    for (link = &withRoom_; *link != block;) link = &(*link)->nextWithRoom_;
    *link = block->nextWithRoom_;
    slots_ -= SourceBlock::kSlots;
    blockUnmaps(block);
    munmap(block, SourceBlock::kBytes);
}

// ---- A thread's slots

namespace {

struct Spare {
    enum class State { fresh, kept, none };

    FreeSlot* first = nullptr;
    size_t count = 0;
    State state = State::fresh;  // none: nothing is kept, for want of a way to give it back, or at the thread's end
};

// Without a destructor, which would have to be registered with memory that a firing must not need.
thread_local constinit Spare spare;

void giveBack(void* slots) {
    auto& ending = *static_cast<Spare*>(slots);
    ending.state = Spare::State::none;
    if (ending.first != nullptr) TimerService::running().giveSlots(ending.first);
}

/// Whether the thread may keep slots. The first keys of a process cost a thread no memory.
bool keepsSlots(Spare& slots) {
    static const auto key = [] {
        pthread_key_t made{};
        return pthread_key_create(&made, giveBack) == 0 ? std::optional(made) : std::nullopt;
    }();
    if (slots.state == Spare::State::fresh) {
        const bool kept = key && pthread_setspecific(*key, &slots) == 0;
        slots.state = kept ? Spare::State::kept : Spare::State::none;
    }
    return slots.state == Spare::State::kept;
}

/// The `count` slots at the front, without those behind them.
FreeSlot* takeFront(Spare& from, size_t count) {
    FreeSlot* front = from.first;
    FreeSlot* last = front;
    for (size_t i = 1; i < count; ++i) last = last->next;
    from.first = last->next;
    from.count -= count;
    last->next = nullptr;
    return front;
}

void refill(Spare& slots) {
    slots.first = TimerService::shared().takeSlots(kHandful);
    for (FreeSlot* each = slots.first; each != nullptr; each = each->next) ++slots.count;
}

}  // namespace

void* SpareSlots::take() noexcept {
    FreeSlot* slot = nullptr;
    if (!keepsSlots(spare)) {
        slot = TimerService::shared().takeSlots(1);
    } else {
        if (spare.first == nullptr) refill(spare);
        if (spare.first != nullptr) slot = takeFront(spare, 1);
    }
    if (slot != nullptr) unpoison(slot);
    return slot;
}

void SpareSlots::give(void* slot) noexcept {
    auto* free = new (slot) FreeSlot{nullptr};
    poison(free);
    if (!keepsSlots(spare)) return TimerService::running().giveSlots(free);
    free->next = spare.first;
    spare.first = free;
    if (++spare.count > 2 * kHandful) TimerService::running().giveSlots(takeFront(spare, kHandful));
}

}  // namespace runtime
