#include "tools/schedulectl/Schedule.h"

#include <algorithm>
#include <limits>

#include "app/LRequestKeys.h"
#include "scheduler/LGCDArming.h"
#include "tools/schedulectl/Text.h"
#include "tools/schedulectl/When.h"

namespace schedulectl {
namespace {

constexpr Moment farAway = 300LL * 366 * daySeconds;  // beyond this the calendar is of no use to anybody

/// The start of what repeats, once its moment is known: where it should fall is the same time of day as when it was
/// armed, read with the zone's offset of that day.
Start RepeatedStart(const Schedule& schedule, Moment likely, Moment armedAt) {
    Start start;
    start.likely = likely;
    const Moment guess = likely + OffsetAt(armedAt) - OffsetAt(likely);
    start.due = likely + OffsetAt(armedAt) - OffsetAt(guess);
    start.asked = start.due + earlySeconds - (StartsADayLate(schedule) ? daySeconds : 0);
    return start;
}

std::string Quoted(const std::string& text) {
    return "\"" + Printable(text) + "\"";
}

/// Why nothing comes of its timers, whatever its application looks like; empty when something does.
std::string WhyNotArmed(const Schedule& schedule, const Situation& situation) {
    if (Repeats(schedule)) {
        if (KeepsWeekdays(schedule) && (schedule.weekDays.mask & 0x7F) == 0) return "no weekday is chosen";
        return "its moment has no place in the calendar";
    }
    if (!situation.helperRuns) return "its moment has passed; missed starts are not made up";
    if (schedule.start.seconds > situation.armedAt()) {
        const bool mayCome = situation.now - schedule.start.seconds <= situation.sleptAtMost;
        return "it fell due " + FormatRelative(schedule.start.seconds, situation.now) + " and starts only once" +
               (mayCome ? ", unless the machine's sleep holds it up still" : "");
    }
    return "its moment had passed when the helper loaded it; missed starts are not made up";
}

std::string WhyNotLaunched(const Schedule& schedule, const Application& application, const Situation& situation) {
    if (!application.there)
        return std::string("its application is gone, so the helper forgets it when it starts") +
               (situation.helperRuns ? " again" : "");
    if (application.fits) return {};
    const std::string version = application.version.empty() ? "no version" : "version " + application.version;
    return Printable(schedule.appPath) + " has " + version + ", the helper starts only " + kMainAppVersion;
}

std::string WarningOfSharedTimer(const Schedule& schedule, const Schedule& twin) {
    return "Differs from " + Quoted(twin.skedName == schedule.skedName ? twin.appPath : twin.skedName) +
           " only in case: adding or deleting one takes the other's timer away until the helper starts again.";
}

void WarnOfClocks(const Outlook& outlook, const Schedule& schedule, const Situation& situation,
                  std::vector<std::string>& warnings) {
    if (!Repeats(schedule) || !outlook.next) return;
    if (const Moment moved = outlook.next->moved(); moved != 0) {
        warnings.push_back("Asked for " + FormatAsked(outlook.next->asked, situation.now) + ", likely starts " +
                           FormatSpan(moved < 0 ? -moved : moved) + (moved < 0 ? " earlier" : " later") +
                           ": clocks change, the interval is fixed. Right again when the helper starts again" +
                           (situation.offsetChanged() ? ", and already right if it was added since the change." : "."));
    }
}

}  // namespace

Moment AskedMoment(const Schedule& schedule) {
    const Moment start = schedule.start.seconds;
    return start > std::numeric_limits<Moment>::max() - earlySeconds ? start : start + earlySeconds;
}

bool Repeats(const Schedule& schedule) {
    return schedule.daily || schedule.weekly;
}

bool KeepsWeekdays(const Schedule& schedule) {
    return schedule.weekly && !schedule.daily;
}

std::vector<Moment> ComingMoments(const Schedule& schedule, Moment armedAt, Moment now, Moment end, size_t count) {
    const LGCDArmingPlan plan =
        LPlanArming(armedAt, schedule.start, schedule.daily, schedule.weekly, schedule.weekDays);
    std::vector<Moment> likely;
    for (size_t i = 0; i < plan.count; ++i) {
        const Moment first = armedAt + std::min<Moment>(plan.armings[i].delay, farAway);
        const Moment interval = plan.armings[i].interval;
        Moment moment = first;
        if (interval > 0 && first <= now) moment += ((now - first) / interval + 1) * interval;
        for (size_t n = 0; n < count && moment > now && moment < end; ++n, moment += interval) {
            likely.push_back(moment);
            if (interval <= 0) break;
        }
    }
    std::sort(likely.begin(), likely.end());
    likely.resize(std::min(likely.size(), count));
    return likely;
}

Start StartAt(const Schedule& schedule, Moment likely, Moment armedAt) {
    if (Repeats(schedule)) return RepeatedStart(schedule, likely, armedAt);
    return {schedule.start.seconds, schedule.start.seconds, AskedMoment(schedule)};
}

std::vector<Start> ComingStarts(const Schedule& schedule, Moment armedAt, Moment now, size_t count) {
    std::vector<Start> starts;
    for (const Moment moment : ComingMoments(schedule, armedAt, now, std::numeric_limits<Moment>::max(), count))
        starts.push_back(StartAt(schedule, moment, armedAt));
    return starts;
}

std::string FormatRepetition(const Schedule& schedule) {
    if (schedule.daily) return "daily";
    if (!schedule.weekly) return "once";
    return (schedule.weekDays.mask & 0x7F) == 0 ? "weekly, no day" : FormatDays(schedule.weekDays.mask);
}

std::string FormatAskedFor(const Schedule& schedule, Moment now) {
    if (Repeats(schedule)) return FormatClock(SecondOfDay(AskedMoment(schedule)));
    return FormatAsked(AskedMoment(schedule), now);
}

bool StartsADayLate(const Schedule& schedule) {
    return KeepsWeekdays(schedule) && SecondOfDay(AskedMoment(schedule)) < earlySeconds;
}

std::string SharedTimerKey(const Schedule& schedule) {
    return Lower(schedule.bundleId) + '\n' + Lower(schedule.appPath) + '\n' + Lower(schedule.skedName);
}

Outlook LookAt(const Schedule& schedule, const Application& application, const Situation& situation,
               const Schedule* twin) {
    Outlook outlook;
    const std::vector<Start> coming = ComingStarts(schedule, situation.armedAt(), situation.now, 1);
    const std::string notLaunched = WhyNotLaunched(schedule, application, situation);
    if (coming.empty()) {
        outlook.never = WhyNotArmed(schedule, situation);
    } else if (!notLaunched.empty()) {
        outlook.never = notLaunched;
    } else {
        outlook.next = coming.front();
    }
    if (outlook.next && StartsADayLate(schedule))
        outlook.warnings.push_back(
            "Starts almost a day late: early by ten seconds, it has the time of day of the day "
            "before but keeps its weekday. Ask for 00:00:10 instead.");
    WarnOfClocks(outlook, schedule, situation, outlook.warnings);
    if (twin != nullptr) outlook.warnings.push_back(WarningOfSharedTimer(schedule, *twin));
    return outlook;
}

}  // namespace schedulectl
