#include "tools/schedulectl/Screen.h"

#include <langinfo.h>
#include <locale.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <numeric>

#include "tools/schedulectl/Text.h"

namespace schedulectl {
namespace {

constexpr size_t gap = 2;  // blanks between two columns

const char* Code(Style style) {
    switch (style) {
        case Style::strong:
            return "\033[1m";
        case Style::faint:
            return "\033[2m";
        case Style::marked:
            return "\033[1;7m";
        case Style::good:
            return "\033[32m";
        case Style::warning:
            return "\033[33m";
        case Style::bad:
            return "\033[1;31m";
        case Style::plain:
            break;
    }
    return "";
}

bool IsSet(const char* name) {
    const char* value = getenv(name);
    return value != nullptr && value[0] != '\0';
}

/// By the user's locale, which the process itself does not use.
bool UserReadsUtf8() {
    const locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (locale == nullptr) return false;
    const bool utf8 = std::string_view(nl_langinfo_l(CODESET, locale)) == "UTF-8";
    freelocale(locale);
    return utf8;
}

size_t TerminalColumns(int fd) {
    winsize size{};
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    const char* columns = getenv("COLUMNS");
    const long number = columns != nullptr ? strtol(columns, nullptr, 10) : 0;
    return number > 0 && number < 10000 ? static_cast<size_t>(number) : 80;
}

}  // namespace

Screen Screen::Of(int fd, ColorChoice choice) {
    const bool terminal = isatty(fd) == 1;
    const char* term = getenv("TERM");
    const bool dumb = term == nullptr || std::string_view(term) == "dumb";
    const bool wanted = terminal && !dumb && !IsSet("NO_COLOR");
    const bool colors = choice == ColorChoice::always || (choice == ColorChoice::automatic && wanted);
    return {terminal ? TerminalColumns(fd) : 0, colors, UserReadsUtf8()};
}

std::string Screen::Paint(Style style, std::string_view text) const {
    if (!colors_ || style == Style::plain || text.empty()) return std::string(text);
    return Code(style) + std::string(text) + "\033[0m";
}

std::string Screen::PaintPlace(size_t place, std::string_view text) const {
    constexpr const char* colors[] = {"36", "33", "35", "32", "34", "31", "96", "95"};
    if (!colors_) return std::string(text);
    return std::string("\033[1;") + colors[place % std::size(colors)] + "m" + std::string(text) + "\033[0m";
}

std::string Screen::Paragraph(std::string_view text, size_t indent, Style style) const {
    std::string result;
    const size_t room = columns() > indent + 10 ? columns() - indent : 10;
    for (const std::string& line : Wrap(text, room)) result += std::string(indent, ' ') + Paint(style, line) + '\n';
    return result;
}

std::string Screen::Beside(const std::string& head, size_t columns, std::string_view text, Style style) const {
    return head + Paragraph(text, columns, style).substr(columns);
}

void Table::Add(std::vector<Cell> cells, std::vector<std::string> notes) {
    cells.resize(columns_.size());
    rows_.push_back({std::move(cells), std::move(notes)});
}

std::vector<size_t> Table::Widths() const {
    std::vector<size_t> widths;
    for (size_t i = 0; i < columns_.size(); ++i) {
        size_t width = DisplayWidth(columns_[i].title);
        for (const Row& row : rows_) width = std::max(width, DisplayWidth(row.cells[i].text));
        widths.push_back(width);
    }
    return widths;
}

/// Takes columns from the widest that may still shrink, one at a time; false when that does not suffice.
bool Table::Shrink(std::vector<size_t>& widths, size_t available) const {
    size_t total = std::accumulate(widths.begin(), widths.end(), gap * (widths.size() - 1));
    while (total > available) {
        size_t widest = widths.size();
        for (size_t i = 0; i < widths.size(); ++i) {
            const bool may = columns_[i].least > 0 && widths[i] > columns_[i].least;
            if (may && (widest == widths.size() || widths[i] > widths[widest])) widest = i;
        }
        if (widest == widths.size()) return false;
        --widths[widest];
        --total;
    }
    return true;
}

std::string Table::RenderRow(const Screen& screen, const Row& row, const std::vector<size_t>& widths) const {
    std::string line;
    size_t last = row.cells.size();
    while (last > 1 && row.cells[last - 1].text.empty()) --last;
    for (size_t i = 0; i < last; ++i) {
        const std::string text = CutToWidth(row.cells[i].text, widths[i], screen.unicode());
        const bool fill = i + 1 < last || columns_[i].right;
        const std::string padded = fill ? Pad(text, widths[i], columns_[i].right) : text;
        line += screen.Paint(row.cells[i].style, padded) + (i + 1 < last ? std::string(gap, ' ') : "");
    }
    line += '\n';
    for (const std::string& note : row.notes) line += screen.Paragraph(note, 4, Style::warning);
    return line;
}

std::string Table::RenderBlocks(const Screen& screen) const {
    size_t label = 0;
    for (size_t i = 1; i < columns_.size(); ++i) label = std::max(label, DisplayWidth(columns_[i].title));
    std::string result;
    for (const Row& row : rows_) {
        if (!result.empty()) result += '\n';
        result += screen.Paint(Style::strong, CutToWidth(row.cells[0].text, screen.columns(), screen.unicode())) + '\n';
        for (size_t i = 1; i < columns_.size(); ++i) {
            const Cell& cell = row.cells[i];
            if (cell.text.empty()) continue;
            const size_t used = 2 + label + gap;
            const size_t room = screen.columns() > used + 4 ? screen.columns() - used : 4;
            result += "  " + screen.Paint(Style::faint, Pad(Lower(columns_[i].title), label)) + std::string(gap, ' ') +
                      screen.Paint(cell.style, CutToWidth(cell.text, room, screen.unicode())) + '\n';
        }
        for (const std::string& note : row.notes) result += screen.Paragraph(note, 2, Style::warning);
    }
    return result;
}

std::string Table::Render(const Screen& screen) const {
    std::vector<size_t> widths = Widths();
    if (screen.isTerminal() && !Shrink(widths, screen.columns())) return RenderBlocks(screen);
    Row heading;
    for (const Column& column : columns_) heading.cells.push_back({column.title, Style::faint});
    std::string result = RenderRow(screen, heading, widths);
    for (const Row& row : rows_) result += RenderRow(screen, row, widths);
    return result;
}

}  // namespace schedulectl
