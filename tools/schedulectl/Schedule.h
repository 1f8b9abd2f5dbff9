// One stored schedule, and what is to be expected of it.
//
// The truths that the whole tool tells are decided here and nowhere else: when a schedule starts next, whether it never
// does and why, and what about it may surprise.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "scheduler/LScheduleStore.h"
#include "tools/schedulectl/Moment.h"

namespace schedulectl {

/// Starts come this much before the moment that was asked for; the store keeps the early moment.
constexpr Moment earlySeconds = 10;

/// As it is stored: `start` is already early, both flags stand as they were given (daily wins where both are set).
using Schedule = LScheduleRecord;

/// The moment that was asked for.
Moment AskedMoment(const Schedule& schedule);
bool Repeats(const Schedule& schedule);
/// It keeps to the days of its weekday set.
bool KeepsWeekdays(const Schedule& schedule);

/// One start that is to be expected.
struct Start {
    Moment likely = 0;  // when it will happen as things stand
    Moment due = 0;     // when it would happen if clocks did not change between its arming and it
    Moment asked = 0;   // the moment asked for that it belongs to

    /// Seconds by which a change of the clocks moves it; 0 nearly always.
    [[nodiscard]] Moment moved() const { return likely - due; }
};

/// The moments of the first `count` starts after `now`, and before `end`, of a schedule that was armed at `armedAt`.
///
/// What repeats keeps the fixed interval with which it was armed, whatever clocks do meanwhile; nothing comes of a
/// one-off whose moment had passed at `armedAt`. A machine that sleeps delays all of this by the time it slept.
std::vector<Moment> ComingMoments(const Schedule& schedule, Moment armedAt, Moment now, Moment end, size_t count);
/// The start at one of those moments.
Start StartAt(const Schedule& schedule, Moment likely, Moment armedAt);
std::vector<Start> ComingStarts(const Schedule& schedule, Moment armedAt, Moment now, size_t count);

/// "once", "daily", "Mon-Fri", "weekly, no day".
std::string FormatRepetition(const Schedule& schedule);
/// What was asked for: "17:30" of what repeats, "Thu 24 Dec 18:00" of what does not.
std::string FormatAskedFor(const Schedule& schedule, Moment now);

/// True for a weekly schedule asked for in the first ten seconds of a day: its early start has yesterday's time of day
/// but keeps today's weekday, so it starts almost a day late.
bool StartsADayLate(const Schedule& schedule);

/// An application as it stands on disk.
struct Application {
    bool there = false;    // something exists at the path
    std::string version;   // "2.13" (major and minor number); empty when it has none
    bool fits = false;     // it is a bundle of the version that the helper starts
    bool running = false;  // this very bundle runs now
};

struct Outlook {
    std::optional<Start> next;          // nothing: it never starts
    std::string never;                  // and this is why
    std::vector<std::string> warnings;  // what may surprise, in whole sentences
};

/// What the helper holds, as far as it can be known from outside.
struct Situation {
    Moment now = 0;
    bool helperRuns = false;
    std::optional<Moment> helperSince;  // when it started; schedules count as armed since then
    /// The machine slept no more seconds than these since then. Timers stand still meanwhile, so starts are late by
    /// what it slept; how much of this it was cannot be seen here.
    Moment sleptAtMost = 0;

    /// The moment from which timers count: the helper's start, or now for a helper yet to be started.
    [[nodiscard]] Moment armedAt() const { return helperSince.value_or(now); }
    /// Clocks changed between the helper's start and now, so a schedule added since counts from another time of day.
    [[nodiscard]] bool offsetChanged() const { return OffsetAt(armedAt()) != OffsetAt(now); }
};

/// `twin` is another stored schedule whose texts differ from these in nothing but case, null when there is none.
Outlook LookAt(const Schedule& schedule, const Application& application, const Situation& situation,
               const Schedule* twin);

/// The identity of `schedule` with case apart: schedules that agree in it share one timer in the helper's memory.
std::string SharedTimerKey(const Schedule& schedule);

}  // namespace schedulectl
