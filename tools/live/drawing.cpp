// Drawing with characters.
#include "drawing.h"

#include "safe_text.h"

#include <algorithm>
#include <cmath>

namespace tools::live {

namespace {
// U+2581 to U+2588 are blocks of one to eight eighths of a line.
constexpr const char* blocks[] = {" ",      "\u2581", "\u2582", "\u2583", "\u2584",
                                  "\u2585", "\u2586", "\u2587", "\u2588"};
constexpr const char* ascii_levels[] = {" ", ".", ":", "-", "=", "+", "*", "#", "#"};

// Braille's dots as bits, by column and from the lowest row up:
//
//     dot 1  dot 4        0x01  0x08
//     dot 2  dot 5        0x02  0x10
//     dot 3  dot 6        0x04  0x20
//     dot 7  dot 8        0x40  0x80
constexpr unsigned braille_dots[2][4] = {{0x40, 0x04, 0x02, 0x01}, {0x80, 0x20, 0x10, 0x08}};

std::string braille(unsigned dots) {
    // U+2800 plus the dots, in UTF-8.
    const unsigned c = 0x2800 + dots;
    return {static_cast<char>(0xE0 | c >> 12), static_cast<char>(0x80 | (c >> 6 & 0x3F)),
            static_cast<char>(0x80 | (c & 0x3F))};
}

// How many of @p levels a value reaches; anything above 0 reaches one.
int level(std::optional<double> v, double top, int levels) {
    if (!v || *v <= 0 || top <= 0)
        return 0;
    return std::clamp(static_cast<int>(std::lround(*v / top * levels)), 1, levels);
}
} // namespace

std::string padded(const std::string& text, std::size_t width, bool right) {
    const std::string blanks(width - std::min(width, display_width(text)), ' ');
    return right ? blanks + text : text + blanks;
}

styled_line bar(const std::vector<std::pair<double, look>>& shares, const std::string& figure,
                int width) {
    const int inner = std::max(width - 2, 1);
    const int text_start = std::max(inner - static_cast<int>(display_width(figure)), 0);
    styled_line line{{"[", look::dim}};
    double sum = 0;
    int drawn = 0;
    for (const auto& [share, how] : shares) {
        sum += std::clamp(share, 0.0, 1.0);
        const int end = std::min(static_cast<int>(std::lround(sum * inner)), text_start);
        if (end > drawn) {
            std::string part;
            part.assign(static_cast<std::size_t>(end - drawn), '|');
            drawn = end;
            line.push_back({part, how});
        }
    }
    line.push_back(
        {std::string(static_cast<std::size_t>(std::max(text_start - drawn, 0)), ' '), look::plain});
    line.push_back({figure, look::plain});
    line.push_back({"]", look::dim});
    return line;
}

std::string column_character(double share, drawing_set with) {
    const int height = level(share, 1, 8);
    return with.unicode ? blocks[height] : ascii_levels[height];
}

std::vector<std::string> draw_graph(const history& values, double top, int rows, int width,
                                    drawing_set with) {
    std::vector<std::string> lines(static_cast<std::size_t>(std::max(rows, 0)));
    const bool dots = with.unicode && rows > 1;
    const int levels_of_row = dots ? 4 : 8;
    for (int column = 0; column < width; ++column) {
        for (int row = 0; row < rows; ++row) {
            const int below = (rows - 1 - row) * levels_of_row;
            std::string& line = lines[static_cast<std::size_t>(row)];
            const auto filled = [&](int age) {
                const auto v = values.at(static_cast<std::size_t>(age));
                return std::clamp(level(v, top, rows * levels_of_row) - below, 0, levels_of_row);
            };
            const int age = width - 1 - column;
            if (!dots) {
                line += with.unicode ? blocks[filled(age)] : ascii_levels[filled(age)];
                continue;
            }
            unsigned pattern = 0;
            for (int half = 0; half < 2; ++half)
                for (int dot = 0; dot < filled(2 * age + 1 - half); ++dot)
                    pattern |= braille_dots[half][dot];
            line += pattern == 0 ? " " : braille(pattern);
        }
    }
    return lines;
}

std::vector<styled_line> flow(const std::string& title, const std::vector<styled_line>& items,
                              int width, int rows) {
    const auto room = static_cast<std::size_t>(std::max(width, 1));
    const std::string indent(display_width(title), ' ');
    std::vector<styled_line> lines;
    std::size_t next = 0;
    while (next < items.size() && static_cast<int>(lines.size()) < rows) {
        styled_line line{{lines.empty() ? title : indent, look::name}};
        std::size_t used = indent.size();
        const bool last_line = static_cast<int>(lines.size()) + 1 == rows;
        for (; next < items.size(); ++next) {
            // The last line keeps room for "+12 more".
            const std::string more = " +" + std::to_string(items.size() - next) + " more";
            const bool is_last_item = next + 1 == items.size();
            const std::size_t kept = last_line && !is_last_item ? more.size() : 0;
            const std::size_t item = width_of(items[next]) + 2;
            if (used + item + kept > room && used > indent.size()) {
                if (last_line)
                    line.push_back({more, look::dim});
                break;
            }
            line.push_back({"  ", look::plain});
            append(line, items[next]);
            used += item;
        }
        lines.push_back(std::move(line));
        if (last_line)
            break;
    }
    return lines;
}

void append(styled_line& to, const styled_line& more) {
    to.insert(to.end(), more.begin(), more.end());
}

std::size_t width_of(const styled_line& line) {
    std::size_t width = 0;
    for (const span& each : line)
        width += display_width(each.text);
    return width;
}

} // namespace tools::live
