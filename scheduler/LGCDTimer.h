// One schedule in memory, and the timer sources that are armed for it.
//
// Both are elements of an LList and belong to the list that holds them: an LGCDTimer to its scheduler's `timers`, an
// LGCDSource to its timer's `sources`. What is in a list is touched under the scheduler's lock only.
#pragma once

#include <cstddef>

#include <dispatch/dispatch.h>

#include "base/LList.h"
#include "datetime/LDateTime.h"
#include "scheduler/LGCDHashTable.h"
#include "scheduler/LScheduleStore.h"

class LGCDScheduler;
struct LGCDTimer;

/// One armed timer source.
struct LGCDSource {
    LGCDSource* next = nullptr;
    dispatch_source_s* source;

    /// LGCDTimerIndex's: the timer that holds the source, and the place in the table of all.
    LGCDTimer* holder = nullptr;
    LGCDHashLink<LGCDSource> bySource{};

    /// Takes over the one reference to `created`, which must have been resumed.
    explicit LGCDSource(dispatch_source_s* created) : source(created) {}
    /// Cancels and releases the source: no call of its handler starts afterwards.
    ~LGCDSource();
    LGCDSource(const LGCDSource&) = delete;
    LGCDSource& operator=(const LGCDSource&) = delete;
};

/// The texts by which timers are looked up; a null name stands for every schedule of the application.
struct LGCDTimerTexts {
    const char* bundleId;
    const char* appPath;
    const char* skedName;
};

/// What the texts come to in a hash table, capital ASCII letters equal to small ones.
struct LGCDTimerHashes {
    size_t application;
    size_t all;  // of `application` when there is no name

    explicit LGCDTimerHashes(const LGCDTimerTexts& texts);
};

/// One schedule. Its start, flags and weekdays are not kept: they are spent in arming and live on in the store alone.
struct LGCDTimer {
    LGCDTimer* next = nullptr;
    /// LGCDTimerIndex's: the list link the other way, and the places in the tables beside the list.
    LGCDTimer* previous = nullptr;
    LGCDHashLink<LGCDTimer> byTexts{};
    LGCDHashLink<LGCDTimer> byApplication{};

    /// None, one, or up to seven for a weekly schedule; the last armed first.
    LList<LGCDSource> sources;
    /// True only when the schedule is a one-off whose single firing was armed.
    bool oneOff = false;
    // The texts come last: a timer whose neighbours come and go is touched in its first two lines of cache only.
    char bundleId[kScheduleTextSize];
    char appPath[kScheduleTextSize];
    char skedName[kScheduleTextSize];

    /// Copies the texts (cut on a whole character after at most 259 bytes) and arms the sources, counted from the
    /// present moment; `scheduler` is who they fire at. Throws std::bad_alloc with nothing left armed when memory is
    /// out.
    LGCDTimer(const char* newBundleId, const char* newAppPath, const char* newSkedName, const LDateTime& start,
              bool daily, bool weekly, const LWeekDay& weekDays, LGCDScheduler* scheduler);
    /// Cancels and releases every source.
    ~LGCDTimer() = default;
    LGCDTimer(const LGCDTimer&) = delete;
    LGCDTimer& operator=(const LGCDTimer&) = delete;

    [[nodiscard]] LGCDTimerTexts Texts() const { return {bundleId, appPath, skedName}; }
    /// Whether the texts are this timer's, ASCII case ignored; a null name is that of every timer.
    [[nodiscard]] bool Matches(const LGCDTimerTexts& texts) const;

  private:
    void Arm(long delay, long interval, LGCDScheduler* scheduler);
};
