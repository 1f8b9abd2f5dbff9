// Operations are built so that running out of memory leaves them without effect: everything that can fail comes first
// (the timer, the record, its places in the indexes), and what follows are links and calls that need no memory. Handing
// the array of keys to the store again is one of those once the store knows that array, hence PrepareIndex.
//
// A replacement is not "delete, flush, add, flush": the changes of both halves are committed by one flush, so the old
// schedule cannot be lost between them.
#include "scheduler/LGCDScheduler.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include <platform_defaults.h>

namespace {

constexpr int64_t kNanosecondsPerSecond = 1000000000;

int64_t ToNanoseconds(long seconds) {
    int64_t nanoseconds;
    if (!__builtin_mul_overflow(int64_t{seconds}, kNanosecondsPerSecond, &nanoseconds)) return nanoseconds;
    using Limits = std::numeric_limits<int64_t>;
    return seconds < 0 ? Limits::min() : Limits::max();
}

NSUserDefaults& Store() {
    return NSUserDefaults::standardUserDefaults();
}

void Flush() {
    try {
        (void)Store().synchronize();  // what could not be written stays pending and goes with the next flush
    } catch (const std::bad_alloc&) {
        // As above: the operation has happened in memory and in the store's view.
    }
}

/// No more than is in use: of thousands that fire at one instant, each byte comes from far memory.
void CopyText(char (&copy)[kScheduleTextSize], const char (&text)[kScheduleTextSize]) {
    std::memcpy(copy, text, std::strlen(text) + 1);
}

/// A source's handler. The source is known only after it was created, when nothing may fail any more.
struct Firing {
    std::shared_ptr<PlatformGate> gate;
    LGCDScheduler* scheduler;
    dispatch_source_s* source;

    void operator()() const {
        PlatformGate::Pass pass(*gate);
        if (pass) scheduler->EvScheduleStart(source);
    }
};

}  // namespace

LGCDScheduler::LGCDScheduler()
    : skedKeys(std::make_unique<NSMutableArray>()), gate_(std::make_shared<PlatformGate>()) {}

LGCDScheduler::~LGCDScheduler() {
    StopFirings();
}

void LGCDScheduler::StopFirings() {
    gate_->close();
}

bool LGCDScheduler::HasSchedules() const {
    const std::lock_guard lock(mutex_);
    return timers.head != nullptr;
}

// ---- Operations

void LGCDScheduler::Add(const char* bundleId, const char* appPath, const char* skedName, const LDateTime& start,
                        bool daily, bool weekly, const LWeekDay& weekDays) {
    if (!LIsScheduleIdentity(bundleId, appPath, skedName)) return;
    const std::string key = LScheduleKey(bundleId, appPath, skedName);
    NSDictionary record = LScheduleRecordToDictionary({bundleId, appPath, skedName, start, daily, weekly, weekDays});

    const std::lock_guard lock(mutex_);
    CatchUp();
    PrepareIndex();
    auto timer = std::make_unique<LGCDTimer>(bundleId, appPath, skedName, start, daily, weekly, weekDays, this);
    LGCDTimer* const added = timer.get();
    LGCDTimer* const replaced = index_.Find({bundleId, appPath, skedName});
    index_.Link(std::move(timer));
    try {
        WriteThrough(key, std::move(record));
    } catch (...) {
        index_.Unlink(added);
        throw;
    }
    if (replaced != nullptr) index_.Unlink(replaced);
    FlushAndCatchUp();
}

void LGCDScheduler::Delete(const char* bundleId, const char* appPath, const char* skedName) {
    if (!LIsScheduleIdentity(bundleId, appPath, skedName)) return;
    const std::string key = LScheduleKey(bundleId, appPath, skedName);

    const std::lock_guard lock(mutex_);
    CatchUp();
    std::set<std::string> unseen;  // joins the others when nothing can fail any more
    if (behind_) unseen.insert(key);
    if (keys_.Contains(key)) {
        PrepareIndex();
        keys_.Remove(key);
        WriteIndex();
    }
    Store().removeObjectForKey(key);
    deletedUnseen_.merge(unseen);
    LGCDTimer* const timer = index_.Find({bundleId, appPath, skedName});
    if (timer != nullptr) index_.Unlink(timer);
    FlushAndCatchUp();
}

void LGCDScheduler::DeleteAll(const char* bundleId, const char* appPath) {
    if (!LIsScheduleText(bundleId) || !LIsScheduleText(appPath)) return;
    const std::string prefix = LScheduleApplicationPrefix(bundleId, appPath);

    const std::lock_guard lock(mutex_);
    CatchUp();
    const bool anyListed = keys_.FirstWithPrefix(prefix) != nullptr;
    if (anyListed) PrepareIndex();
    if (behind_) deletedUnseenPrefixes_.insert(prefix);  // the last that can fail
    while (LGCDTimer* timer = index_.Find({bundleId, appPath, nullptr})) index_.Unlink(timer);
    if (anyListed) {
        while (const std::string* key = keys_.FirstWithPrefix(prefix)) {
            // A store of foreign hands may list the index itself, and the prefix may catch it.
            if (*key != kScheduleIndexKey) Store().removeObjectForKey(*key);
            keys_.Remove(*key);
        }
        WriteIndex();
        FlushAndCatchUp();
    }
}

void LGCDScheduler::LoadFromSettings() {
    const std::lock_guard lock(mutex_);
    const bool wasRead = platform_defaults::readStore();
    if (!wasRead) {
        retry_.Start([gate = gate_, this] {
            PlatformGate::Pass pass(*gate);
            if (pass) TryAgain();
        });
    }
    Load(Live::replaced);
    behind_ = !wasRead;
    if (wasRead) ForgetTrying();
}

// ---- Loading, under the lock

/// Built aside and exchanged at the end: without memory the scheduler stays as it was.
struct LGCDScheduler::Loading {
    LList<LGCDTimer> timers;
    LGCDTimerIndex index{timers};
    std::unique_ptr<NSMutableArray> array = std::make_unique<NSMutableArray>();
    LScheduleKeys keys{array};
    const LGCDTimerIndex* live = nullptr;  // of what stays armed; null when nothing does
    bool removedAny = false;

    /// Whether there is anything at `path`. Most schedules are of one application, which is looked for once.
    bool Exists(const std::string& path) {
        if (path != lastPath || path.empty()) {
            lastExists = NSFileManager::defaultManager().fileExistsAtPath(path);
            lastPath = path;
        }
        return lastExists;
    }
    std::string lastPath;
    bool lastExists = false;
};

/// `kept` leaves alone what was added before: its timers stay, and what has fired of it does not come back.
void LGCDScheduler::Load(Live live) {
    Loading loading;
    if (live == Live::kept) loading.live = &index_;
    bool deletedAny = false;
    std::vector<std::string> keys = LReadScheduleIndex(Store()).value_or(std::vector<std::string>());
    loading.index.Reserve(keys.size());
    for (std::string& key : keys) {
        if (WasDeletedUnseen(key)) {
            Store().removeObjectForKey(key);
            deletedAny = true;
            continue;
        }
        const std::string* const listed = loading.keys.Append(std::move(key));
        if (listed == nullptr) continue;
        if (live == Live::replaced || !keys_.Contains(*listed)) LoadSchedule(*listed, loading);
    }
    if (live == Live::kept) loading.index.TakeOver(index_);  // last, since only the exchange may follow
    index_.Swap(loading.index);
    keys_.Swap(loading.keys);
    indexPrepared_ = false;
    if (deletedAny) PrepareIndex();
    // What was added meanwhile may be owed still.
    if (deletedAny || loading.removedAny || live == Live::kept) Flush();
}

/// Arms the schedule under `key`, if there is one, or removes its record when its application has gone.
void LGCDScheduler::LoadSchedule(const std::string& key, Loading& loading) {
    const std::optional<LScheduleRecord> record = LReadScheduleRecord(Store(), key);
    if (!record) return;
    if (!loading.Exists(record->appPath)) {
        Store().removeObjectForKey(LScheduleKey(record->bundleId, record->appPath, record->skedName));
        loading.removedAny = true;
        return;
    }
    // As if the live one, whose name differs in case, had been added after this one.
    const LGCDTimerTexts texts{record->bundleId.c_str(), record->appPath.c_str(), record->skedName.c_str()};
    if (loading.live != nullptr && loading.live->Find(texts) != nullptr) return;
    loading.index.Link(std::make_unique<LGCDTimer>(texts.bundleId, texts.appPath, texts.skedName, record->start,
                                                   record->daily, record->weekly, record->weekDays, this));
}

/// Whether a deletion that could not see the store would have removed the key from it. What was added since stays.
bool LGCDScheduler::WasDeletedUnseen(const std::string& key) const {
    if (key == kScheduleIndexKey || keys_.Contains(key)) return false;
    if (deletedUnseen_.contains(key)) return true;
    return std::any_of(deletedUnseenPrefixes_.begin(), deletedUnseenPrefixes_.end(),
                       [&key](const std::string& prefix) { return key.starts_with(prefix); });
}

/// Loads what could not be loaded before, if that can be done now.
void LGCDScheduler::CatchUp() {
    if (!behind_ || !platform_defaults::readStore()) return;
    Load(Live::kept);
    behind_ = false;
    ForgetTrying();
}

/// Ends an operation that has taken effect. The flush waits for a lock, so it may have read what CatchUp could not.
void LGCDScheduler::FlushAndCatchUp() {
    Flush();
    try {
        CatchUp();
    } catch (const std::bad_alloc&) {
        // The next operation tries again, or the timer.
    }
}

void LGCDScheduler::TryAgain() {
    const std::lock_guard lock(mutex_);
    if (!behind_) return ForgetTrying();
    retry_.Again();  // first, so that a want of memory does not end it
    CatchUp();
}

void LGCDScheduler::ForgetTrying() {
    deletedUnseen_.clear();
    deletedUnseenPrefixes_.clear();
    retry_.Stop();
}

// ---- The store's side, under the lock

/// To be called before a change of the index: afterwards the change and WriteIndex need no memory.
void LGCDScheduler::PrepareIndex() {
    keys_.Repair();
    if (indexPrepared_) return;
    Store().setObject(*skedKeys, kScheduleIndexKey);
    indexPrepared_ = true;
}

void LGCDScheduler::WriteIndex() {
    Store().setObject(*skedKeys, kScheduleIndexKey);
}

/// The record, and its key at the end of the index. On std::bad_alloc the store is as it was (the key may have moved).
void LGCDScheduler::WriteThrough(const std::string& key, NSDictionary record) {
    const bool listed = keys_.Contains(key);
    if (listed) {
        keys_.MoveToEnd(key);
    } else {
        keys_.Append(key);
    }
    try {
        Store().setObject(std::move(record), key);
    } catch (...) {
        if (!listed) keys_.Remove(key);
        throw;
    }
    WriteIndex();
}

// ---- Firing

void LGCDScheduler::EvScheduleStart(dispatch_source_s* source) {
    char bundleId[kScheduleTextSize];
    char appPath[kScheduleTextSize];
    char skedName[kScheduleTextSize];
    {
        const std::lock_guard lock(mutex_);
        const LGCDTimer* timer = index_.HolderOf(source);
        if (timer == nullptr) return;
        if (timer->oneOff) LGCDTimerIndex::PrepareUnlink(*timer);
        CopyText(bundleId, timer->bundleId);
        CopyText(appPath, timer->appPath);
        CopyText(skedName, timer->skedName);
    }
    try {
        EvScheduleStart(bundleId, appPath, skedName);
    } catch (...) {
        RemoveFired(source);
        throw;
    }
    RemoveFired(source);
}

/// Takes a one-off out of memory after its firing. It may have been deleted or replaced while the owner was told; its
/// source is then held by nobody, and cannot have come back at the same address while its handler runs.
void LGCDScheduler::RemoveFired(dispatch_source_s* source) {
    std::unique_ptr<LGCDTimer> removed;  // destroyed after the lock is let go, for the sake of firings side by side
    const std::lock_guard lock(mutex_);
    LGCDTimer* const timer = index_.HolderOf(source);
    if (timer != nullptr && timer->oneOff) removed = index_.Unlink(timer);
}

dispatch_source_s* LGCDScheduler::CreateTimer(long delay, long interval, LGCDScheduler* scheduler) {
    dispatch_block_t handler = Firing{scheduler->gate_, scheduler, nullptr};
    dispatch_source_s* source = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0,
                                                       dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0));
    if (source == nullptr) return nullptr;
    handler.target<Firing>()->source = source;

    const dispatch_time_t start = dispatch_time(DISPATCH_TIME_NOW, ToNanoseconds(delay));
    const uint64_t every = interval > 0 ? static_cast<uint64_t>(ToNanoseconds(interval)) : DISPATCH_TIME_FOREVER;
    dispatch_source_set_timer(source, start, every, 0);
    dispatch_source_set_event_handler(source, std::move(handler));
    dispatch_resume(source);
    return source;
}
