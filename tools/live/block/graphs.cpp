// Usage of CPUs and accelerator, network and disk traffic over time.
#include "block.h"

#include "drawing.h"
#include "figure_text.h"

#include <algorithm>
#include <cstdio>

namespace tools::live {
namespace {

constexpr int title_width = 14;
constexpr double smallest_top = 64 * 1024; // idle traffic should look idle

std::string latest_text(const graph& of) {
    const auto v = of.values.at(0);
    if (!v)
        return "-";
    if (!of.is_percent)
        return size_text(*v) + "/s";
    char text[16];
    std::snprintf(text, sizeof text, "%.1f%%", *v);
    return text;
}

double top_of(const graph& of, int width) {
    if (of.is_percent)
        return 100;
    return std::max(of.values.greatest(static_cast<std::size_t>(2 * width)), smallest_top);
}

// Graphs side by side, their titles before them or, where they have several lines, above them.
std::vector<styled_line> draw_row(const std::vector<const graph*>& graphs, int width, int rows,
                                  drawing_set with) {
    std::vector<styled_line> lines(static_cast<std::size_t>(rows));
    const int each_width = width / static_cast<int>(graphs.size());
    for (const graph* each : graphs) {
        const bool last = each == graphs.back();
        const int own =
            (last ? width - each_width * static_cast<int>(graphs.size() - 1) : each_width - 1);
        const std::string figure = padded(latest_text(*each), title_width - 5, true);
        const bool high = rows > 1;
        const int graph_width = std::max(high ? own : own - title_width - 1, 1);
        const auto drawn = draw_graph(each->values, top_of(*each, graph_width), high ? rows - 1 : 1,
                                      graph_width, with);
        const span title{padded(each->title, 5), look::name};
        const auto fill = [&](int used) {
            return span{std::string(static_cast<std::size_t>(std::max(own - used, 0)) + !last, ' '),
                        look::plain};
        };
        if (high) {
            append(lines[0], {title, {figure, look::plain}, fill(title_width)});
            for (std::size_t i = 0; i < drawn.size(); ++i)
                append(lines[i + 1], {{drawn[i], look::graph}, fill(graph_width)});
        } else {
            append(lines[0], {title,
                              {figure + " ", look::plain},
                              {drawn[0], look::graph},
                              fill(title_width + 1 + graph_width)});
        }
    }
    return lines;
}

std::vector<styled_line> draw(const block_request& what) {
    const board_view& board = what.board;
    std::vector<const graph*> graphs{&board.cpu, &board.network, &board.disk};
    if (board.find("nnu") != nullptr)
        graphs.push_back(&board.accelerator);
    if (what.rows > 2)
        return draw_row(graphs, what.width, what.rows, what.with);
    std::vector<styled_line> lines;
    for (std::size_t i = 0; i < graphs.size() && static_cast<int>(lines.size()) < what.rows;
         i += 2) {
        const std::size_t end = std::min(i + 2, graphs.size());
        lines.push_back(draw_row({graphs.begin() + static_cast<std::ptrdiff_t>(i),
                                  graphs.begin() + static_cast<std::ptrdiff_t>(end)},
                                 what.width, 1, what.with)[0]);
    }
    return lines;
}

const block_registration registered({"graphs", 30, {2, 5, 8}, draw});

} // namespace
} // namespace tools::live
