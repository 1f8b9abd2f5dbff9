// What can be seen of the system at one moment: the store, the helper, and the applications on disk.
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tools/schedulectl/Failure.h"
#include "tools/schedulectl/Schedule.h"

namespace schedulectl {

/// The store as found on disk.
struct StoreState {
    std::string path;
    bool exists = false;
    std::optional<Failure> problem;     // it is there and cannot be read
    std::vector<std::string> setAside;  // stores that could not be used and were put aside, full paths, oldest first
    size_t keysOnly = 0;                // listed in the index, without a record that can be loaded
};

struct World {
    Situation situation;
    int helperPid = 0;  // 0: none runs, or it cannot be told
    StoreState store;
    std::vector<Schedule> schedules;  // in the order of the index

    [[nodiscard]] Moment now() const { return situation.now; }
    /// Looked at once for each path.
    [[nodiscard]] const Application& ApplicationOf(const Schedule& schedule) const;
    [[nodiscard]] Outlook OutlookOf(const Schedule& schedule) const;

    /// The schedule whose record is stored under `key`, null when there is none.
    [[nodiscard]] const Schedule* RecordAt(const std::string& key) const;

    /// Another stored schedule that shares its timer, null when there is none.
    [[nodiscard]] const Schedule* TwinOf(const Schedule& schedule) const;

  private:
    mutable std::unordered_multimap<std::string, size_t> places_;  // by SharedTimerKey, filled at first use
    mutable std::unordered_map<std::string, size_t> records_;      // by record key, filled at first use
    mutable std::map<std::pair<std::string, std::string>, Application> applications_;
};

/// Looks at everything; reads only.
World Observe();
/// Throws Failure (unreadable) when there is a store that cannot be read.
void RequireStore(const World& world);

/// The application at `path` as it stands now; it counts as running when an application with that identifier runs from
/// the very directory that the path leads to.
Application LookAtApplication(const std::string& path, const std::string& bundleId);

/// The bundle identifier in the Info.plist of `path`; empty when it has none.
std::string BundleIdentifierOf(const std::string& path);

struct RunningApplication {
    std::string path;
    int pid = 0;
};
/// The main application that a helper starting now would see; nothing when it would see none.
std::optional<RunningApplication> RunningMainApplication();

/// The one stored schedule called `name` (of the application at `app` unless that is empty). Throws Failure: not found,
/// or several applications have one.
const Schedule& FindSchedule(const World& world, const std::string& name, const std::string& app);

struct ScheduledStart {
    const Schedule* schedule = nullptr;
    Start start;
};
/// The coming starts over all schedules that start something, soonest first, at most `count` and before `end`.
std::vector<ScheduledStart> ComingStartsOfAll(const World& world, size_t count, Moment end);

}  // namespace schedulectl
