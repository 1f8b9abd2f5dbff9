// The scheduler: every schedule in memory, the operations that change them, and the dispatch of a firing to its owner.
//
// Three things are kept in step: the armed schedules in `timers`, the index of keys in `skedKeys`, and the store in the
// user's defaults (scheduler/LScheduleStore.h). In the store texts compare exactly; in memory they compare with ASCII
// case ignored. So names that differ only in case have two records but, until the next start, one armed schedule.
//
// Threads. All members may be called from any thread: one lock makes each operation a unit. It is held over the store's
// flush, which delays a firing by milliseconds, and by fractions of a second while another program locks the store. The
// firing event runs on a worker thread without the lock, so it may take its time and may call the operations; schedules
// that fall due together are told side by side. A firing that had found its schedule before `Delete` took the lock may
// still be told afterwards.
//
// Failures. No operation reports one. Texts that are null, longer than 259 bytes or no UTF-8, and the one identity
// whose key would be the index's own, make an operation do nothing. What cannot be flushed stays pending and goes with
// the next flush. A store that cannot be read when it is to be loaded is loaded as soon as it can be: every operation
// tries again, and a timer does while there is none. What was added meanwhile stays as it is, armed or fired, and wins
// over the same names in the store; what was deleted stays deleted. A process that ends before that takes what was
// changed with it. When memory is out, an operation throws std::bad_alloc and has had no effect, and the next one
// works; a firing needs no memory.
//
//     class Launcher : public LGCDScheduler {
//       public:
//         ~Launcher() override { StopFirings(); }
//         void EvScheduleStart(const char* bundleId, const char* appPath, const char* skedName) override;
//     };
#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <string>

#include <Foundation/Foundation.h>
#include <dispatch/dispatch.h>
#include <platform_gate.h>

#include "base/LList.h"
#include "datetime/LDateTime.h"
#include "scheduler/LGCDRetry.h"
#include "scheduler/LGCDTimer.h"
#include "scheduler/LGCDTimerIndex.h"
#include "scheduler/LScheduleKeys.h"

class LGCDScheduler {
  public:
    /// No schedules; what is stored comes with LoadFromSettings.
    LGCDScheduler();
    LGCDScheduler(const LGCDScheduler&) = delete;
    LGCDScheduler& operator=(const LGCDScheduler&) = delete;
    /// Cancels every source. The store is left as it is. An implementer calls StopFirings in its own destructor: when
    /// this one runs, the firing event has nobody left to implement it.
    virtual ~LGCDScheduler();

    /// A schedule is due. The texts live until the call returns. Runs on a worker thread, side by side with others.
    virtual void EvScheduleStart(const char* bundleId, const char* appPath, const char* skedName) = 0;

    // ---- Operations

    /// Stores and arms a schedule, replacing one of the same identity; the replacement reaches the disk in one step. A
    /// schedule that arms nothing (a one-off in the past, a week without days) is stored all the same.
    void Add(const char* bundleId, const char* appPath, const char* skedName, const LDateTime& start, bool daily,
             bool weekly, const LWeekDay& weekDays);

    /// Removes the record of exactly this identity, and the newest timer that equals it with case ignored.
    void Delete(const char* bundleId, const char* appPath, const char* skedName);

    /// Removes every record whose key begins with the application's prefix, so also those of longer paths that begin
    /// with this one, and every timer of exactly this application, case ignored. Writes only when a key matched.
    void DeleteAll(const char* bundleId, const char* appPath);

    /// Discards everything in memory and rebuilds it from the store. A record without its texts is skipped; the record
    /// of an application that no longer exists at its path is removed, its key stays listed. A key that is listed twice
    /// counts once.
    void LoadFromSettings();

    /// Whether there is any schedule in memory, armed or not. Knows nothing of a store that could not be read yet.
    [[nodiscard]] bool HasSchedules() const;

    // ---- Firing

    /// Tells the owner which schedule `source` belongs to; nothing when its schedule has gone meanwhile. A one-off
    /// leaves `timers` afterwards, its record stays stored. Called by the sources' handlers.
    void EvScheduleStart(dispatch_source_s* source);

    /// No firing reaches the owner after this returned; waits for those under way, except for the caller's own.
    void StopFirings();

    /// A new resumed source that fires at `scheduler` after `delay` seconds and then every `interval` seconds, only
    /// once when `interval` is 0 or less. The caller owns its one reference. Moments beyond the clock's range are cut
    /// to its end. Null or std::bad_alloc when memory is out.
    static dispatch_source_s* CreateTimer(long delay, long interval, LGCDScheduler* scheduler);

    // ---- State. To be read while no other thread uses the scheduler, and changed by the operations alone.

    /// Every schedule in memory, newest first.
    LList<LGCDTimer> timers;
    /// The store's index as it stands in memory; never null.
    std::unique_ptr<NSMutableArray> skedKeys;

  private:
    struct Loading;
    enum class Live { replaced, kept };
    void Load(Live live);
    void LoadSchedule(const std::string& key, Loading& loading);
    void CatchUp();
    void FlushAndCatchUp();
    void TryAgain();
    void ForgetTrying();
    [[nodiscard]] bool WasDeletedUnseen(const std::string& key) const;
    void PrepareIndex();
    void WriteIndex();
    void WriteThrough(const std::string& key, NSDictionary record);
    void RemoveFired(dispatch_source_s* source);

    mutable std::mutex mutex_;  // over everything else here
    LGCDTimerIndex index_{timers};
    LScheduleKeys keys_{skedKeys};
    bool indexPrepared_ = false;  // the store knows `skedKeys`: handing it over again cannot fail
    std::shared_ptr<PlatformGate> gate_;

    bool behind_ = false;                          // the store was to be loaded and could not be read
    std::set<std::string> deletedUnseen_;          // keys that a Delete would have removed from it
    std::set<std::string> deletedUnseenPrefixes_;  // prefixes of those that a DeleteAll would have removed
    LGCDRetry retry_;                              // runs while `behind_`
};
