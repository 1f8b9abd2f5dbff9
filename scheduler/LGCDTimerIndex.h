// The list of timers together with the indexes beside it.
//
// The list keeps its order, newest first; the indexes keep a lookup by texts or by source, an insertion and a removal
// from growing with the number of schedules. Whoever changes the list does it through here. No lock of its own.
#pragma once

#include <memory>
#include <unordered_map>

#include "base/LList.h"
#include "scheduler/LGCDTimer.h"

class LGCDTimerIndex {
  public:
    /// Beside `timers`, which must be empty and outlive the index.
    explicit LGCDTimerIndex(LList<LGCDTimer>& timers) : timers_(timers) {}
    LGCDTimerIndex(const LGCDTimerIndex&) = delete;
    LGCDTimerIndex& operator=(const LGCDTimerIndex&) = delete;

    /// Puts the timer at the head of the list. On std::bad_alloc nothing has changed and the timer is destroyed.
    void Link(std::unique_ptr<LGCDTimer> timer);
    /// Takes a timer out of the list and hands it over.
    std::unique_ptr<LGCDTimer> Unlink(LGCDTimer* timer) noexcept;

    /// The newest timer with these texts, ASCII case ignored (a null name: some timer of the application), or null.
    [[nodiscard]] LGCDTimer* Find(const LGCDTimerTexts& texts) const;
    /// The timer that holds `source`, or null.
    [[nodiscard]] LGCDTimer* HolderOf(dispatch_source_s* source) const;

    /// Exchanges lists and indexes.
    void Swap(LGCDTimerIndex& other) noexcept;

  private:
    void ForgetSources(LGCDTimer& timer) noexcept;

    LList<LGCDTimer>& timers_;
    LGCDTimersByText byText_;  // equal ones in the order of their insertion: the newest last
    std::unordered_map<dispatch_source_s*, LGCDTimer*> bySource_;
};
