// Laying out columns.
#include "columns.h"

#include "figure_text.h"
#include "safe_text.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace tools {

namespace {
// Texts are aligned left and numbers right, also numbers that are names, such as process ids.
bool stands_left(const field& f, const std::vector<std::string>& cells) {
    const bool is_text = f.what == kind::label || f.what == kind::text;
    return is_text && std::any_of(cells.begin(), cells.end(), [](const std::string& cell) {
               return cell.find_first_not_of("0123456789") != cell.npos;
           });
}

template<class Cell>
std::string join(const std::vector<text_column>& columns, Cell cell) {
    std::string line;
    bool first = true;
    for (const text_column& each : columns) {
        if (each.dropped)
            continue;
        if (!std::exchange(first, false))
            line += ' ';
        const std::string& text = cell(each);
        const std::string blanks(each.width - std::min(each.width, display_width(text)), ' ');
        line += each.left ? text + blanks : blanks + text;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}
} // namespace

text_column text_column::of(std::string heading, const std::string& text, std::size_t rows) {
    text_column column;
    column.heading = std::move(heading);
    column.cells.assign(rows, text);
    column.left = true;
    return column;
}

std::vector<std::size_t> order_of(const subject& what, const sample& figures,
                                  std::string_view order_by) {
    std::vector<std::size_t> order(figures.rows.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    if (order_by.empty())
        return order;
    const std::size_t by = what.index_of(order_by);
    std::vector<double> keys;
    for (const row& each : figures.rows)
        keys.push_back(number_in_unit(what.fields[by], each.values[by]).value_or(-1));
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return keys[a] > keys[b]; });
    return order;
}

std::vector<text_column> columns_of(const subject& what, const sample& figures,
                                    const std::vector<std::size_t>& rows, bool with_counters) {
    std::vector<text_column> columns;
    for (std::size_t i = 0; i < what.fields.size(); ++i) {
        const field& f = what.fields[i];
        if (*f.heading == '\0' || (!with_counters && f.what == kind::counter))
            continue;
        text_column column;
        column.heading = f.heading;
        column.rank = f.rank;
        for (const std::size_t at : rows)
            column.cells.push_back(cell_text(f, figures.rows[at].values[i]));
        column.left = stands_left(f, column.cells);
        columns.push_back(std::move(column));
    }
    return columns;
}

void widen(std::vector<text_column>& columns, std::vector<std::size_t>& widths) {
    widths.resize(std::max(widths.size(), columns.size()));
    for (std::size_t i = 0; i < columns.size(); ++i) {
        std::size_t width = std::max(widths[i], display_width(columns[i].heading));
        for (const std::string& cell : columns[i].cells)
            width = std::max(width, display_width(cell));
        columns[i].width = widths[i] = width;
    }
}

void drop_columns(std::vector<text_column>& columns, std::size_t room) {
    std::size_t total = columns.empty() ? 0 : columns.size() - 1;
    for (const text_column& each : columns)
        total += each.width;
    while (total > room) {
        // Of equal ranks the last goes.
        text_column* victim = nullptr;
        for (text_column& each : columns)
            if (!each.dropped && each.rank > 0 && (victim == nullptr || each.rank >= victim->rank))
                victim = &each;
        if (victim == nullptr)
            return;
        victim->dropped = true;
        total -= victim->width + 1;
    }
}

std::string heading_line(const std::vector<text_column>& columns) {
    return join(columns,
                [](const text_column& each) -> const std::string& { return each.heading; });
}

std::string row_line(const std::vector<text_column>& columns, std::size_t at) {
    return join(columns,
                [at](const text_column& each) -> const std::string& { return each.cells[at]; });
}

} // namespace tools
