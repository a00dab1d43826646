// Bars and graphs as text.
#ifndef MONCL_TOOLS_LIVE_DRAWING_H
#define MONCL_TOOLS_LIVE_DRAWING_H

#include "history.h"
#include "style.h"

#include <string>
#include <utility>
#include <vector>

namespace tools::live {

/// @p text with blanks after it, or before it if @p right, to at least @p width columns.
std::string padded(const std::string& text, std::size_t width, bool right = false);

/// A bar of @p width columns in brackets: each part's share of the bar in its look, and @p figure
/// at the right end.
styled_line bar(const std::vector<std::pair<double, look>>& shares, const std::string& figure,
                int width);

/// One character for @p share, 0 to 1, of a column's height.
std::string column_character(double share, drawing_set with);

/// The latest values as a graph, the newest at the right; @p top is the value that reaches the
/// upper edge. Unknown values leave a gap.
/// @return @p rows lines of @p width columns
std::vector<std::string> draw_graph(const history& values, double top, int rows, int width,
                                    drawing_set with);

/// Items one after the other, as many as fit into @p rows lines of @p width columns after the
/// title; what does not fit is counted at the end, as in "+12 more".
std::vector<styled_line> flow(const std::string& title, const std::vector<styled_line>& items,
                              int width, int rows);

/// Appends spans to a line.
void append(styled_line& to, const styled_line& more);

/// Columns that a line takes up.
std::size_t width_of(const styled_line& line);

} // namespace tools::live

#endif
