// Where the output goes and what it can show: its width, colours, and characters beyond ASCII.
//
// Nothing is cut and nothing wraps unless the output is a terminal. Colours only help the eye: every meaning that they
// carry is in the text as well.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace schedulectl {

enum class Style { plain, strong, faint, marked, good, warning, bad };
enum class ColorChoice { automatic, always, never };

class Screen {
  public:
    /// What the open file `fd` is: a terminal of so many columns, with colours unless NO_COLOR is set or TERM is dumb.
    static Screen Of(int fd, ColorChoice choice);
    /// A screen of a given kind; `columns` 0 is no terminal.
    Screen(size_t columns, bool colors, bool unicode) : columns_(columns), colors_(colors), unicode_(unicode) {}

    [[nodiscard]] bool isTerminal() const { return columns_ > 0; }
    /// Columns of the terminal; without one, more than any line needs.
    [[nodiscard]] size_t columns() const { return columns_ > 0 ? columns_ : 100000; }
    [[nodiscard]] bool colors() const { return colors_; }
    [[nodiscard]] bool unicode() const { return unicode_; }

    [[nodiscard]] std::string Paint(Style style, std::string_view text) const;
    /// The colour of the schedule that stands at `place` in a picture; colours repeat after eight.
    [[nodiscard]] std::string PaintPlace(size_t place, std::string_view text) const;
    /// `text` in lines no wider than the terminal, each begun with `indent` blanks and ended with a newline.
    [[nodiscard]] std::string Paragraph(std::string_view text, size_t indent = 0, Style style = Style::plain) const;
    /// `head`, which takes `columns` on the screen, then `text` beside it, its further lines indented as far.
    [[nodiscard]] std::string Beside(const std::string& head, size_t columns, std::string_view text,
                                     Style style = Style::plain) const;
    /// `fancy` where the output shows more than ASCII, else `simple`.
    [[nodiscard]] const char* Glyph(const char* fancy, const char* simple) const { return unicode_ ? fancy : simple; }

  private:
    size_t columns_;
    bool colors_;
    bool unicode_;
};

struct Cell {
    std::string text;
    Style style = Style::plain;
};

/// Rows under headings, without lines between them. On a terminal that is too narrow, columns that may shrink are cut;
/// when that is not enough each row becomes a short block: its first cell, then one line for each other cell.
class Table {
  public:
    struct Column {
        std::string title;
        bool right = false;
        size_t least = 0;  // columns that it may shrink to; 0: it never shrinks
    };

    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}
    /// One cell for each column. `notes` are shown whole under the row.
    void Add(std::vector<Cell> cells, std::vector<std::string> notes = {});
    [[nodiscard]] std::string Render(const Screen& screen) const;

  private:
    struct Row {
        std::vector<Cell> cells;
        std::vector<std::string> notes;
    };
    [[nodiscard]] std::vector<size_t> Widths() const;
    [[nodiscard]] bool Shrink(std::vector<size_t>& widths, size_t available) const;
    [[nodiscard]] std::string RenderRow(const Screen& screen, const Row& row, const std::vector<size_t>& widths) const;
    [[nodiscard]] std::string RenderBlocks(const Screen& screen) const;

    std::vector<Column> columns_;
    std::vector<Row> rows_;
};

}  // namespace schedulectl
