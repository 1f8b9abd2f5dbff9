#include "tools/schedulectl/World.h"

#include <AppKit/AppKit.h>
#include <CoreFoundation/CoreFoundation.h>
#include <Foundation/Foundation.h>
#include <sys/stat.h>

#include <algorithm>
#include <limits>
#include <memory>

#include "app/LCFBundle.h"
#include "app/LRequestKeys.h"
#include "tools/schedulectl/Failure.h"
#include "tools/schedulectl/Text.h"

namespace schedulectl {
namespace {

struct ReleaseObject {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};
template <typename T>
using Held = std::unique_ptr<std::remove_pointer_t<T>, ReleaseObject>;

CFBundleRef OpenBundle(const std::string& path) {
    const Held<CFStringRef> text(CFStringCreateWithCString(kCFAllocatorDefault, path.c_str(), kCFStringEncodingUTF8));
    if (!text) return nullptr;
    const Held<CFURLRef> url(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text.get(), kCFURLPOSIXPathStyle, 1));
    return url ? CFBundleCreate(kCFAllocatorDefault, url.get()) : nullptr;
}

bool SameDirectory(const std::string& a, const std::string& b) {
    struct stat first {};
    struct stat second {};
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

}  // namespace

Application LookAtApplication(const std::string& path, const std::string& bundleId) {
    Application application;
    application.there = NSFileManager::defaultManager().fileExistsAtPath(path);
    const LCFBundle bundle(OpenBundle(path));
    int major = 0, minor = 0;
    if (!bundle.IsNull() && bundle.GetVersionNumber(major, minor))
        application.version = std::to_string(major) + "." + std::to_string(minor);
    application.fits = application.version == kMainAppVersion;
    for (const NSRunningApplication& running : NSRunningApplication::runningApplicationsWithBundleIdentifier(bundleId))
        application.running = application.running || SameDirectory(running.bundlePath(), path);
    return application;
}

std::string BundleIdentifierOf(const std::string& path) {
    const Held<CFBundleRef> bundle(OpenBundle(path));
    if (!bundle) return {};
    const auto value =
        static_cast<CFStringRef>(CFBundleGetValueForInfoDictionaryKey(bundle.get(), kCFBundleIdentifierKey));
    char buffer[kScheduleTextSize] = "";
    const bool read = value != nullptr && CFStringGetCString(value, buffer, sizeof buffer, kCFStringEncodingUTF8) != 0;
    return read ? buffer : "";
}

std::optional<RunningApplication> RunningMainApplication() {
    for (const NSRunningApplication& running :
         NSRunningApplication::runningApplicationsWithBundleIdentifier(kMainAppBundleId))
        if (running.localizedName() == kMainAppName)
            return RunningApplication{running.bundlePath(), running.processIdentifier()};
    return std::nullopt;
}

const Application& World::ApplicationOf(const Schedule& schedule) const {
    const auto key = std::make_pair(schedule.appPath, schedule.bundleId);
    const auto known = applications_.find(key);
    if (known != applications_.end()) return known->second;
    return applications_[key] = LookAtApplication(schedule.appPath, schedule.bundleId);
}

const Schedule* World::RecordAt(const std::string& key) const {
    if (records_.empty())
        for (size_t i = 0; i < schedules.size(); ++i)
            records_.emplace(LScheduleKey(schedules[i].bundleId, schedules[i].appPath, schedules[i].skedName), i);
    const auto found = records_.find(key);
    return found == records_.end() ? nullptr : &schedules[found->second];
}

const Schedule* World::TwinOf(const Schedule& schedule) const {
    if (places_.empty())
        for (size_t i = 0; i < schedules.size(); ++i) places_.emplace(SharedTimerKey(schedules[i]), i);
    const auto [first, last] = places_.equal_range(SharedTimerKey(schedule));
    for (auto place = first; place != last; ++place) {
        const Schedule& other = schedules[place->second];
        const bool same = other.bundleId == schedule.bundleId && other.appPath == schedule.appPath &&
                          other.skedName == schedule.skedName;
        if (!same) return &other;
    }
    return nullptr;
}

Outlook World::OutlookOf(const Schedule& schedule) const {
    return LookAt(schedule, ApplicationOf(schedule), situation, TwinOf(schedule));
}

const Schedule& FindSchedule(const World& world, const std::string& name, const std::string& app) {
    const Schedule* found = nullptr;
    std::vector<std::string> names;
    for (const Schedule& schedule : world.schedules) {
        names.push_back(schedule.skedName);
        const bool here = schedule.skedName == name &&
                          (app.empty() || schedule.appPath == app || SameDirectory(app, schedule.appPath));
        if (!here) continue;
        if (found != nullptr)
            throw Failure{ExitCode::usage, "Several applications have a schedule \"" + Printable(name) + "\"",
                          Printable(found->appPath) + " and " + Printable(schedule.appPath) + ".",
                          "Say which with --app " + ShellWord(found->appPath) + "."};
        found = &schedule;
    }
    if (found != nullptr) return *found;
    const std::vector<std::string> likely = Likely(name, names);
    throw Failure{ExitCode::notFound, "There is no schedule \"" + Printable(name) + "\"",
                  !likely.empty() ? DidYouMean(likely)
                  : names.empty() ? "No schedule is stored at all."
                                  : "None of the " + std::to_string(names.size()) + " stored has that name.",
                  "\"schedulectl\" shows all of them.", likely};
}

std::vector<ScheduledStart> ComingStartsOfAll(const World& world, size_t count, Moment end) {
    struct Found {
        size_t place;  // of the schedule: equal moments stay in the store's order
        const Schedule* schedule;
        Moment moment;
    };
    const auto sooner = [](const Found& a, const Found& b) {
        return a.moment != b.moment ? a.moment < b.moment : a.place < b.place;
    };
    constexpr size_t manyMore = 4096;
    count = std::clamp<size_t>(count, 1, std::numeric_limits<size_t>::max() / 2);
    const Moment armedAt = world.situation.armedAt();
    std::vector<Found> all;
    size_t place = 0;
    for (const Schedule& schedule : world.schedules) {
        if (!world.OutlookOf(schedule).next) continue;
        for (const Moment moment : ComingMoments(schedule, armedAt, world.now(), end, count))
            all.push_back({place, &schedule, moment});
        ++place;
        if (all.size() < count + manyMore) continue;
        // Enough are known to see how far they reach: what comes later is not looked for any more.
        std::nth_element(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count) - 1, all.end(), sooner);
        all.resize(count);
        end = std::min(end, all.back().moment);
    }
    std::sort(all.begin(), all.end(), sooner);
    all.resize(std::min(all.size(), count));
    std::vector<ScheduledStart> starts;
    starts.reserve(all.size());
    for (const Found& found : all) starts.push_back({found.schedule, StartAt(*found.schedule, found.moment, armedAt)});
    return starts;
}

}  // namespace schedulectl
