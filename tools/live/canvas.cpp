// Writing into the grid.
#include "canvas.h"

#include "safe_text.h"

#include <algorithm>
#include <cwchar>

namespace tools::live {

namespace {
void append_utf8(std::string& to, wchar_t character) {
    const auto c = static_cast<char32_t>(character);
    if (c < 0x80) {
        to += static_cast<char>(c);
        return;
    }
    const int more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr unsigned first[] = {0, 0xC0, 0xE0, 0xF0};
    to += static_cast<char>(first[more] | c >> (6 * more));
    for (int i = more - 1; i >= 0; --i)
        to += static_cast<char>(0x80 | (c >> (6 * i) & 0x3F));
}
} // namespace

canvas::canvas(int rows, int columns)
    : rows_(std::max(rows, 1)), columns_(std::max(columns, 1)),
      cells_(static_cast<std::size_t>(rows_) * static_cast<std::size_t>(columns_)) {}

const cell& canvas::at(int row, int column) const {
    return cells_[static_cast<std::size_t>(row * columns_ + column)];
}

void canvas::put(int row, const styled_line& line) {
    if (row < 0 || row >= rows_)
        return;
    cell* to = &cells_[static_cast<std::size_t>(row * columns_)];
    int column = 0;
    for (const span& each : line) {
        for (auto character : to_characters(each.text)) {
            int width = wcwidth(static_cast<wchar_t>(character));
            if (width == 0)
                continue;    // a mark that would stand above the character before it
            if (width < 0) { // the locale has no such character
                character = U'?';
                width = 1;
            }
            if (column + width > columns_)
                return;
            to[column] = {static_cast<wchar_t>(character), each.how};
            if (width == 2)
                to[column + 1] = {0, each.how};
            column += width;
        }
    }
}

std::string canvas::text() const {
    std::string all;
    for (int row = 0; row < rows_; ++row) {
        std::string line;
        for (int column = 0; column < columns_; ++column)
            if (at(row, column).character != 0)
                append_utf8(line, at(row, column).character);
        line.erase(line.find_last_not_of(' ') + 1);
        all += line + "\n";
    }
    return all;
}

} // namespace tools::live
