// Looking at the store and the helper through the platform's eyes for them.
#include <platform_instance.h>
#include <platform_store_reader.h>

#include <algorithm>
#include <ctime>

#include "tools/schedulectl/Text.h"
#include "tools/schedulectl/World.h"

namespace schedulectl {
namespace {

using platform_store::ReadResult;

std::optional<Failure> ProblemOf(ReadResult result, const std::string& path) {
    const std::string what = "The store cannot be read";
    const std::string where = Printable(path);
    switch (result) {
        case ReadResult::ok:
        case ReadResult::missing:
            return std::nullopt;
        case ReadResult::damaged:
            return Failure{ExitCode::unreadable, what, where + " is damaged or is no store.",
                           "The helper puts it aside when it starts and begins anew; then bring schedules back with "
                           "\"schedulectl import\"."};
        case ReadResult::newer:
            return Failure{ExitCode::unreadable, what, where + " was written by a later version of the helper.",
                           "Use the schedulectl of that version; this version's helper would put the store aside."};
        case ReadResult::refused:
            return Failure{ExitCode::unreadable, what,
                           where + " or its folder is a link, is not yours, or others may write to it.",
                           "Make both yours alone: chmod 700 the folder, chmod 600 the file."};
        case ReadResult::unavailable:
            break;
    }
    return Failure{ExitCode::unreadable, what, where + " cannot be opened just now.",
                   "Look at its rights and at the disk, then try again."};
}

int64_t Seconds(clockid_t clock) {
    timespec time{};
    (void)clock_gettime(clock, &time);
    return time.tv_sec;
}

/// The one clock counts while the machine sleeps, the other stands still.
Moment SleptAtMost(const Situation& situation) {
    if (!situation.helperSince) return 0;
    const Moment sinceSwitchedOn = Seconds(CLOCK_BOOTTIME) - Seconds(CLOCK_MONOTONIC);
    return std::clamp<Moment>(sinceSwitchedOn, 0, situation.now - *situation.helperSince);
}

}  // namespace

World Observe() {
    World world;
    world.situation.now = time(nullptr);
    const platform_instance::Status helper = platform_instance::query();
    world.situation.helperRuns = helper.running;
    world.helperPid = helper.pid;
    if (helper.running && helper.startedAt > 0 && helper.startedAt <= world.situation.now)
        world.situation.helperSince = helper.startedAt;
    world.situation.sleptAtMost = SleptAtMost(world.situation);

    world.store.path = platform_store::standardPath();
    const platform_store::StoreReader reader(world.store.path);
    world.store.exists = reader.result() != ReadResult::missing;
    world.store.problem = ProblemOf(reader.result(), world.store.path);
    world.store.setAside = platform_store::filesSetAside(world.store.path);
    for (LStoredSchedule& stored : LReadStoredSchedules(reader.defaults())) {
        if (stored.record)
            world.schedules.push_back(std::move(*stored.record));
        else
            ++world.store.keysOnly;
    }
    return world;
}

void RequireStore(const World& world) {
    if (world.store.problem) throw Failure(*world.store.problem);
}

}  // namespace schedulectl
