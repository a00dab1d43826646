// Composing the page.
#include "page.h"

#include "block.h"
#include "columns.h"
#include "drawing.h"
#include "figure_text.h"
#include "safe_text.h"

#include <algorithm>
#include <cstdio>
#include <set>

namespace tools::live {

const std::vector<full_view> full_views{
    {'2', "top"}, {'3', "irq"}, {'4', "disk"}, {'5', "part"},    {'6', "net"},
    {'7', "fps"}, {'8', "pym"}, {'9', "isp"},  {'0', "thermal"}, {0, "cooling"},
    {0, "nnu"},   {0, "gdc"},   {0, "ion"},    {0, "freq"},      {0, "perf"}};

namespace {

constexpr int narrow = 60;     // columns below which only totals and processes are shown
constexpr int short_page = 16; // rows, likewise

screen_height height_of(int rows) {
    return rows < 30 ? screen_height::low : rows < 50 ? screen_height::middle : screen_height::high;
}

std::string interval_text(double seconds) {
    std::string text;
    append_number(text, seconds);
    return text + " s";
}

styled_line header(const board_view& board, const page_state& state, const std::string& clock,
                   int width, board_view::clock::time_point now) {
    const latest_sample* system = board.find("system");
    styled_line line{{"moncl ", look::title}, {safe_text(board.host), look::name}};
    if (system != nullptr && width >= narrow)
        line.push_back({"  " + system->text(0, "version"), look::plain});
    line.push_back({"  " + clock + "  every " + interval_text(state.interval), look::plain});
    if (state.replays)
        line.push_back({state.playing ? "  playing" : "  recorded", look::warning});
    if (state.paused)
        line.push_back({"  paused", look::warning});
    if (board.away) {
        const auto silent =
            std::chrono::duration_cast<std::chrono::seconds>(now - board.last_answer);
        line.push_back({"  no answer for " + std::to_string(silent.count()) + " s", look::alarm});
    }
    if (width >= narrow)
        line.push_back({"  ? help", look::dim});
    return line;
}

bool matches(const std::vector<text_column>& columns, std::size_t at, const std::string& filter) {
    return filter.empty() ||
           std::any_of(columns.begin(), columns.end(), [&](const text_column& each) {
               return each.cells[at].find(filter) != std::string::npos;
           });
}

// The order chosen by key for the processes; the subject's own for all others.
std::string order_for(const subject& what, const page_state& state) {
    if (std::string_view(what.name) == "top")
        return state.order_by;
    return what.order_by;
}

/// A table in the rest of the screen, from the row @p top on.
table_extent draw_table(canvas& to, int top, const latest_sample& from, const page_state& state) {
    const int room = to.rows() - top - 1;
    if (room < 1)
        return {};
    const auto order = order_of(*from.what, from.figures, order_for(*from.what, state));
    std::vector<text_column> columns = columns_of(*from.what, from.figures, order, true);
    std::vector<std::size_t> shown;
    for (std::size_t i = 0; i < order.size(); ++i)
        if (matches(columns, i, state.filter))
            shown.push_back(i);
    std::vector<std::size_t> widths;
    widen(columns, widths);
    // The command is the widest column, so it goes last, where rows are cut off.
    std::stable_partition(columns.begin(), columns.end(),
                          [](const text_column& each) { return each.heading != "COMMAND"; });
    drop_columns(columns, static_cast<std::size_t>(to.columns()));
    to.put(top,
           {{padded(heading_line(columns), static_cast<std::size_t>(to.columns())), look::title}});
    const auto visible = static_cast<std::size_t>(room);
    const std::size_t first =
        std::min(state.scroll, shown.size() - std::min(shown.size(), visible));
    const bool cut = first + visible < shown.size();
    for (std::size_t i = 0; i < visible && first + i < shown.size(); ++i) {
        if (cut && i + 1 == visible) {
            to.put(to.rows() - 1,
                   {{"+" + std::to_string(shown.size() - first - i) + " more", look::dim}});
            break;
        }
        to.put(top + 1 + static_cast<int>(i), {{row_line(columns, shown[first + i]), look::plain}});
    }
    return {shown.size(), cut ? visible - 1 : visible};
}

table_extent draw_blocks(canvas& to, const board_view& board, const page_state& state,
                         drawing_set with) {
    const bool brief = to.columns() < narrow || to.rows() < short_page;
    int row = 1;
    for (const block& each : all_blocks()) {
        if (brief && each.place > 20)
            break;
        const int most = brief ? 1 : each.rows_for[static_cast<std::size_t>(height_of(to.rows()))];
        // A third of the screen stays for the processes.
        const int room = std::min(most, to.rows() * 2 / 3 - row);
        if (room < 1)
            continue;
        for (const styled_line& line :
             each.draw({board, to.columns(), room, state.every_cpu && !brief, with}))
            to.put(row++, line);
    }
    const latest_sample* processes = board.find("top");
    return processes == nullptr ? table_extent{} : draw_table(to, row, *processes, state);
}

table_extent draw_full_view(canvas& to, const board_view& board, const page_state& state) {
    const full_view& view = full_views[state.view - 1];
    const subject* what = find_subject(view.subject);
    const latest_sample* from = board.find(view.subject);
    to.put(1, {{what == nullptr ? view.subject : what->help, look::name},
               {"   tab: next   esc: back", look::dim}});
    if (from == nullptr) {
        to.put(2, {{"no figures", look::dim}});
        return {};
    }
    return draw_table(to, 2, *from, state);
}

void draw_overview(canvas& to, const std::vector<std::unique_ptr<board_view>>& boards,
                   const page_state& state) {
    std::size_t widest = 5;
    for (const auto& each : boards)
        widest = std::max(widest, display_width(safe_text(each->host)));
    const auto field = [](const std::string& text, std::size_t width) {
        return span{padded(text, width, true), look::plain};
    };
    to.put(1, {{padded("  Board", widest + 3) + padded("%CPU", 7, true) + padded("%mem", 7, true) +
                    padded("%NNU", 7, true) + padded("hottest", 9, true) +
                    padded("net/s", 9, true) + padded("disk/s", 9, true),
                look::title}});
    int row = 2;
    for (std::size_t i = 0; i < boards.size(); ++i) {
        const board_view& board = *boards[i];
        if (row + 1 == to.rows() && i + 1 < boards.size()) {
            to.put(row, {{"+" + std::to_string(boards.size() - i) + " more", look::dim}});
            return;
        }
        styled_line line{{i == state.board ? "> " : "  ", look::alarm},
                         {padded(safe_text(board.host), widest + 1), look::name}};
        if (board.away) {
            line.push_back({" no answer", look::alarm});
            to.put(row++, line);
            continue;
        }
        const auto number = [](std::optional<double> v) {
            char text[32];
            std::snprintf(text, sizeof text, "%.1f", v.value_or(0));
            return v ? std::string(text) : std::string("-");
        };
        const auto size = [](std::optional<double> v) { return v ? size_text(*v) : "-"; };
        const latest_sample* mem = board.find("mem");
        std::optional<double> hottest;
        if (const latest_sample* zones = board.find("thermal"))
            for (std::size_t z = 0; z < zones->figures.rows.size(); ++z)
                if (const auto v = zones->number(z, "temperature_celsius"))
                    hottest = std::max(hottest.value_or(*v), *v);
        append(line,
               {field(number(board.cpu.values.at(0)), 7),
                field(number(mem == nullptr ? std::nullopt : mem->number(0, "used_percent")), 7),
                field(number(board.accelerator.values.at(0)), 7), field(number(hottest), 9),
                field(size(board.network.values.at(0)), 9),
                field(size(board.disk.values.at(0)), 9)});
        to.put(row++, line);
    }
}

void draw_help(canvas& to) {
    constexpr const char* lines[] = {
        "q  leave                          h ?  this help",
        "P M I N  processes by CPU, memory, I/O, network",
        "/  show only rows that hold a text; escape shows all again",
        "arrows, page up, page down, home, end  move in the table",
        "1  each CPU, or the total         space  pause and go on; play a recording",
        "+ -  longer and shorter interval  left, right  through a recording",
        "tab  one block after the other, full screen; escape goes back",
        "2 processes  3 interrupts  4 disks  5 file systems  6 network",
        "7 frame rates  8 pyramid scalers  9 image signal  0 temperatures",
        "b  the next board; all of them with a line each first",
        "CPU bars: user, nice, system, waiting for I/O, stolen, in this order",
    };
    int row = 1;
    for (const char* each : lines)
        to.put(row++, {{each, look::plain}});
}
} // namespace

std::vector<const subject*> subjects_for(const page_state& state) {
    std::set<std::string_view> names{"system", "cpu"};
    if (state.view > 0)
        names.insert(full_views[state.view - 1].subject);
    else
        names.insert({"mem", "disk", "part", "net", "thermal", "nnu", "fps", "top"});
    std::vector<const subject*> wanted;
    for (const subject* each : all_subjects())
        if (names.count(each->name) != 0)
            wanted.push_back(each);
    return wanted;
}

table_extent draw_page(canvas& to, const std::vector<std::unique_ptr<board_view>>& boards,
                       const page_state& state, drawing_set with, const std::string& clock,
                       board_view::clock::time_point now) {
    const board_view& board = *boards[std::min(state.board, boards.size() - 1)];
    to.put(0, header(board, state, clock, to.columns(), now));
    table_extent extent;
    if (state.help)
        draw_help(to);
    else if (state.overview)
        draw_overview(to, boards, state);
    else if (state.view > 0)
        extent = draw_full_view(to, board, state);
    else
        extent = draw_blocks(to, board, state, with);
    styled_line last;
    if (state.typing_filter)
        last = {{"/" + state.filter + "_", look::name}};
    else if (!state.filter.empty())
        last = {{"only rows with \"" + state.filter + "\"; / changes it, escape shows all",
                 look::name}};
    else if (!state.message.empty())
        last = {{state.message, look::warning}};
    if (!last.empty()) {
        last.push_back({std::string(static_cast<std::size_t>(to.columns()), ' '), look::plain});
        to.put(to.rows() - 1, last);
    }
    return extent;
}

} // namespace tools::live
