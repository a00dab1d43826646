// CPUs as bars by mode, folded into columns; those that there is no room for as a histogram.
#include "block.h"

#include "drawing.h"

#include <algorithm>
#include <cstdio>

namespace tools::live {
namespace {

constexpr int narrowest_bar = 20;

std::string percent_text(std::optional<double> percent) {
    char text[16];
    std::snprintf(text, sizeof text, "%.1f%%", percent.value_or(0));
    return percent ? text : "-";
}

styled_line cpu_bar(const latest_sample& cpus, std::size_t row, int width) {
    std::vector<std::pair<double, look>> shares;
    const auto add = [&](const char* field_name, look how) {
        shares.emplace_back(cpus.number(row, field_name).value_or(0) / 100, how);
    };
    add("user_percent", look::user);
    add("guest_percent", look::user);
    add("nice_percent", look::nice);
    add("system_percent", look::system);
    add("irq_percent", look::system);
    add("softirq_percent", look::system);
    add("iowait_percent", look::iowait);
    add("steal_percent", look::steal);
    styled_line line{{padded(cpus.text(row, "cpu"), 4, true), look::name}};
    append(line, bar(shares, percent_text(cpus.number(row, "usage_percent")), width - 4));
    return line;
}

std::vector<std::size_t> single_cpus(const latest_sample& cpus) {
    std::vector<std::size_t> rows;
    for (std::size_t i = 0; i < cpus.figures.rows.size(); ++i)
        if (!cpus.figures.rows[i].is_total)
            rows.push_back(i);
    return rows;
}

// Bars from top to bottom, column by column.
std::vector<styled_line> folded_bars(const latest_sample& cpus,
                                     const std::vector<std::size_t>& rows, int columns, int width) {
    const int count = static_cast<int>(rows.size());
    const int lines_needed = (count + columns - 1) / columns;
    std::vector<styled_line> lines(static_cast<std::size_t>(lines_needed));
    const int column_width = width / columns;
    for (int i = 0; i < count; ++i) {
        styled_line& line = lines[static_cast<std::size_t>(i % lines_needed)];
        const bool last = i / lines_needed == columns - 1;
        append(line, cpu_bar(cpus, rows[static_cast<std::size_t>(i)],
                             last ? width - column_width * (columns - 1) : column_width - 1));
        if (!last)
            line.push_back({" ", look::plain});
    }
    return lines;
}

// A column for each CPU, as high as it is busy.
std::vector<styled_line> histogram(const latest_sample& cpus, const std::vector<std::size_t>& rows,
                                   int width, int most_lines, drawing_set with) {
    std::vector<styled_line> items;
    const int room = std::max(width - 5, 1);
    std::vector<styled_line> lines;
    std::size_t next = 0;
    while (next < rows.size() && static_cast<int>(lines.size()) < most_lines) {
        const bool last_line = static_cast<int>(lines.size()) + 1 == most_lines;
        std::size_t count = std::min(rows.size() - next, static_cast<std::size_t>(room));
        const bool cut = last_line && next + count < rows.size();
        if (cut)
            count -= std::min<std::size_t>(count, 12);
        std::string columns;
        for (const std::size_t end = next + count; next < end; ++next)
            columns +=
                column_character(cpus.number(rows[next], "usage_percent").value_or(0) / 100, with);
        styled_line line{{padded(lines.empty() ? "each" : "", 4, true) + " ", look::name},
                         {columns, look::graph}};
        if (cut)
            line.push_back({" +" + std::to_string(rows.size() - next) + " more", look::dim});
        lines.push_back(std::move(line));
        if (cut)
            break;
    }
    return lines;
}

std::vector<styled_line> draw(const block_request& what) {
    const latest_sample* cpus = what.board.find("cpu");
    if (cpus == nullptr)
        return {};
    const std::vector<std::size_t> rows = single_cpus(*cpus);
    const int columns = std::max(1, what.width / narrowest_bar);
    const int needed = (static_cast<int>(rows.size()) + columns - 1) / columns;
    if (what.every_cpu && needed <= what.rows) {
        // No more columns than the lines need, so that the bars are as wide as can be.
        const int lines = std::min(what.rows, std::max(needed, 1));
        const int fewest = (static_cast<int>(rows.size()) + lines - 1) / std::max(lines, 1);
        return folded_bars(*cpus, rows, std::max(fewest, 1), what.width);
    }
    std::vector<styled_line> lines{cpu_bar(*cpus, 0, what.width)};
    if (what.every_cpu && what.rows > 1)
        for (styled_line& each : histogram(*cpus, rows, what.width, what.rows - 1, what.with))
            lines.push_back(std::move(each));
    return lines;
}

const block_registration registered({"cpu", 10, {4, 6, 12}, draw});

} // namespace
} // namespace tools::live
