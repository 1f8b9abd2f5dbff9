// The list of timers together with the indexes beside it.
//
// The list keeps its order, newest first; the indexes keep a lookup by texts or by source, an insertion and a removal
// from growing with the number of schedules. Their links lie in the timers and sources, so that they cost no
// allocation. Whoever changes the list does it through here. No lock of its own.
#pragma once

#include <cstddef>
#include <memory>

#include "base/LList.h"
#include "scheduler/LGCDHashTable.h"
#include "scheduler/LGCDTimer.h"

class LGCDTimerIndex {
  public:
    /// Beside `timers`, which must be empty and outlive the index.
    explicit LGCDTimerIndex(LList<LGCDTimer>& timers) : timers_(timers) {}
    LGCDTimerIndex(const LGCDTimerIndex&) = delete;
    LGCDTimerIndex& operator=(const LGCDTimerIndex&) = delete;

    /// Makes room for so many timers with one source each; without it the room grows as needed. std::bad_alloc.
    void Reserve(size_t timers);
    /// Puts the timer at the head of the list. On std::bad_alloc nothing has changed and the timer is destroyed.
    void Link(std::unique_ptr<LGCDTimer> timer);
    /// Has the memory that Unlink will write to brought near meanwhile; a hint.
    static void PrepareUnlink(const LGCDTimer& timer) noexcept;
    /// Takes a timer out of the list and hands it over.
    std::unique_ptr<LGCDTimer> Unlink(LGCDTimer* timer) noexcept;

    /// The newest timer with these texts, ASCII case ignored (a null name: the newest of the application), or null.
    [[nodiscard]] LGCDTimer* Find(const LGCDTimerTexts& texts) const;
    /// The timer that holds `source`, or null.
    [[nodiscard]] LGCDTimer* HolderOf(dispatch_source_s* source) const;

    /// Moves every timer of `other` to the head of this list, in their order. On std::bad_alloc nothing has changed.
    void TakeOver(LGCDTimerIndex& other);
    /// Exchanges lists and indexes.
    void Swap(LGCDTimerIndex& other) noexcept;

  private:
    LList<LGCDTimer>& timers_;
    LGCDHashTable<LGCDTimer, &LGCDTimer::byTexts> byTexts_;
    LGCDHashTable<LGCDTimer, &LGCDTimer::byApplication> byApplication_;
    LGCDHashTable<LGCDSource, &LGCDSource::bySource> bySource_;
};
