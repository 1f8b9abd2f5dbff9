// A picture of the coming seven days: days down, hours across, one letter and one colour for each schedule.
#pragma once

#include <string>
#include <vector>

#include "tools/schedulectl/Moment.h"
#include "tools/schedulectl/Screen.h"

namespace schedulectl {

struct WeekLine {
    std::string name;
    std::string rule;            // "daily 17:30"
    std::vector<Moment> starts;  // in the seven days from today's midnight on
};

/// Days run by the clock on the wall, so a day on which clocks change looks like any other. Times of today that are
/// over stay empty. Where two schedules share a place of the picture the place shows how many.
std::string RenderWeek(const std::vector<WeekLine>& lines, Moment now, const Screen& screen);

}  // namespace schedulectl
