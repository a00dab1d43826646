// A grid of characters: one whole screen, apart from any terminal.
#ifndef MONCL_TOOLS_LIVE_CANVAS_H
#define MONCL_TOOLS_LIVE_CANVAS_H

#include "style.h"

namespace tools::live {

/// One place of the screen.
struct cell {
    wchar_t character = L' '; ///< 0 where a wide character before it reaches into this place
    look how = look::plain;
};

/// Lines of cells.
class canvas {
public:
    canvas(int rows, int columns);

    int rows() const { return rows_; }
    int columns() const { return columns_; }
    const cell& at(int row, int column) const;

    /// Writes @p line at the start of @p row and cuts it off at the screen's edge. Rows beyond the
    /// screen are ignored.
    void put(int row, const styled_line& line);
    /// The screen as text, without blanks at the ends of lines.
    std::string text() const;

private:
    int rows_;
    int columns_;
    std::vector<cell> cells_;
};

} // namespace tools::live

#endif
