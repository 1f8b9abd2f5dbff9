#include "tools/schedulectl/Week.h"

#include <algorithm>
#include <map>

#include "tools/schedulectl/Text.h"

namespace schedulectl {
namespace {

constexpr int days = 7;
constexpr size_t labelColumns = 12;  // "Mon 23 Nov  "
constexpr size_t manyLetters = 52;

std::string Letter(size_t place) {
    if (place >= manyLetters) return "#";
    return std::string(1, static_cast<char>(place < 26 ? 'A' + place : 'a' + place - 26));
}

/// Columns that an hour takes: as many as fit, so that a terminal of any width is used well.
size_t ColumnsPerHour(const Screen& screen) {
    if (!screen.isTerminal()) return 3;
    const size_t room = screen.columns() > labelColumns ? screen.columns() - labelColumns : 0;
    return std::clamp<size_t>(room / 24, 1, 6);
}

struct Place {
    int day = -1;  // 0 today
    size_t column = 0;
    bool operator<(const Place& other) const { return day != other.day ? day < other.day : column < other.column; }
};

class Picture {
  public:
    Picture(Moment now, const Screen& screen) : screen_(screen), perHour_(ColumnsPerHour(screen)), now_(now) {}

    void Add(size_t schedule, Moment start) {
        const Place place = PlaceOf(start);
        if (place.day < 0) return;
        std::vector<size_t>& there = starts_[place];
        if (std::find(there.begin(), there.end(), schedule) == there.end()) there.push_back(schedule);
        crowded_ = crowded_ || there.size() > 1;
    }

    [[nodiscard]] bool crowded() const { return crowded_; }

    [[nodiscard]] std::string Render() const {
        std::string text = Hours();
        for (int day = 0; day < days; ++day) text += Day(day);
        return text;
    }

  private:
    [[nodiscard]] Place PlaceOf(Moment moment) const {
        const Civil today = CivilAt(now_), civil = CivilAt(moment);
        for (int day = 0; day < days; ++day) {
            const Civil wanted = PlusDays(today, day);
            const bool same = wanted.year == civil.year && wanted.month == civil.month && wanted.day == civil.day;
            if (same) return {day, static_cast<size_t>(civil.hour * 60 + civil.minute) * perHour_ / 60};
        }
        return {};
    }

    [[nodiscard]] std::string Hours() const {
        const int step = perHour_ >= 3 ? 2 : 3;
        std::string line(labelColumns, ' ');
        for (int hour = 0; hour < 24; hour += step)
            line += Pad(std::to_string(hour), perHour_ * static_cast<size_t>(step));
        return screen_.Paint(Style::faint, line.substr(0, line.find_last_not_of(' ') + 1)) + '\n';
    }

    [[nodiscard]] std::string Day(int day) const {
        const Civil civil = PlusDays(CivilAt(now_), day);
        const Moment noon = MomentAt({civil.year, civil.month, civil.day, 12, 0, 0, 0}).value_or(now_);
        const std::string label = Pad(CutToWidth(FormatDay(noon, noon), labelColumns - 1, false), labelColumns);
        std::string line = screen_.Paint(day == 0 ? Style::strong : Style::plain, label);
        std::string blanks;  // kept back, so that no line ends with them
        for (size_t column = 0; column < 24 * perHour_; ++column) {
            const std::string place = At({day, column});
            if (place == " ") {
                blanks += ' ';
                continue;
            }
            line += blanks + place;
            blanks.clear();
        }
        return line + '\n';
    }

    [[nodiscard]] std::string At(Place place) const {
        const Place now = PlaceOf(now_);
        const bool isNow = place.day == now.day && place.column == now.column;
        const auto found = starts_.find(place);
        if (found != starts_.end()) {
            const std::vector<size_t>& there = found->second;
            if (isNow && there.size() == 1) return screen_.Paint(Style::marked, Letter(there[0]));
            if (there.size() == 1) return screen_.PaintPlace(there[0], Letter(there[0]));
            return screen_.Paint(Style::strong, there.size() < 10 ? std::to_string(there.size()) : "*");
        }
        if (isNow) return screen_.Paint(Style::good, screen_.Glyph("\u25b8", ">"));
        if (place < now) return " ";
        const size_t step = (perHour_ >= 3 ? 2 : 3) * perHour_;
        if (place.column % step == 0) return screen_.Paint(Style::faint, screen_.Glyph("\u00b7", "."));
        return " ";
    }

    const Screen& screen_;
    size_t perHour_;
    Moment now_;
    std::map<Place, std::vector<size_t>> starts_;
    bool crowded_ = false;
};

std::string Legend(const std::vector<WeekLine>& lines, Moment now, bool crowded, const Screen& screen) {
    size_t widest = 0, rules = 0;
    const size_t named = std::min(lines.size(), manyLetters);
    for (size_t i = 0; i < named; ++i) {
        widest = std::max(widest, DisplayWidth(lines[i].name));
        rules = std::max(rules, DisplayWidth(lines[i].rule));
    }
    const size_t room = screen.columns() > rules + 7 ? screen.columns() - rules - 7 : 8;
    widest = std::min(widest, std::max<size_t>(room, 8));
    std::string text;
    for (size_t i = 0; i < named; ++i) {
        const std::string name = CutToWidth(lines[i].name, widest, screen.unicode());
        const std::string rule = screen.isTerminal()
                                     ? CutToWidth(lines[i].rule, screen.columns() - widest - 7, screen.unicode())
                                     : lines[i].rule;
        text += "  " + screen.PaintPlace(i, Letter(i)) + "  " + Pad(name, widest) + "  " +
                screen.Paint(Style::faint, rule) + '\n';
    }
    if (named < lines.size()) text += "  #  " + Count(lines.size() - named, "more schedule") + '\n';
    if (crowded) text += "  " + screen.Paint(Style::strong, "2") + "  so many schedules at one place\n";
    const std::string mark = screen.Glyph("\u25b8", ">");
    return text + "  " + screen.Paint(Style::good, mark) + "  now, " + FormatClock(SecondOfDay(now) / 60 * 60) + '\n';
}

}  // namespace

std::string RenderWeek(const std::vector<WeekLine>& lines, Moment now, const Screen& screen) {
    Picture picture(now, screen);
    for (size_t i = 0; i < lines.size(); ++i)
        for (const Moment start : lines[i].starts) picture.Add(i, start);
    return picture.Render() + '\n' + Legend(lines, now, picture.crowded(), screen);
}

}  // namespace schedulectl
