// Samples as columns of text: cells, widths and what is left out where there is no room.
#ifndef MONCL_TOOLS_COLUMNS_H
#define MONCL_TOOLS_COLUMNS_H

#include "sample.h"
#include "subject.h"

#include <string>
#include <string_view>
#include <vector>

namespace tools {

/// One column of a table.
struct text_column {
    std::string heading;
    std::vector<std::string> cells;
    bool left = false;     ///< cells are aligned left, as texts are
    int rank = 0;          ///< columns of the highest rank go first; those of rank 0 stay
    std::size_t width = 0; ///< on the terminal
    bool dropped = false;

    /// A column of one text in all of @p rows cells.
    static text_column of(std::string heading, const std::string& text, std::size_t rows);
};

/// The positions of the rows of @p figures, ordered by the field @p order_by: the greatest first,
/// unknown ones last. Without a field they stay as they came.
std::vector<std::size_t> order_of(const subject& what, const sample& figures,
                                  std::string_view order_by);

/// The fields of @p what that have a heading, as columns of the rows @p rows of @p figures.
/// @param with_counters leave counters out if false
std::vector<text_column> columns_of(const subject& what, const sample& figures,
                                    const std::vector<std::size_t>& rows, bool with_counters);

/// Gives each column the width of its widest cell, and at least that of @p widths. Updates @p
/// widths, so that the columns of later tables stand below these.
void widen(std::vector<text_column>& columns, std::vector<std::size_t>& widths);

/// Drops columns until a line is no wider than @p room, or only columns of rank 0 are left.
void drop_columns(std::vector<text_column>& columns, std::size_t room);

/// The headings in one line.
std::string heading_line(const std::vector<text_column>& columns);
/// The cells of row @p at in one line.
std::string row_line(const std::vector<text_column>& columns, std::size_t at);

} // namespace tools

#endif
