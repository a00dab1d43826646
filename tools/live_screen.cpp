// Changing a page in place with the control sequences that all terminals know.
#include "live_screen.h"

#include <iostream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tools {

namespace {
constexpr const char* enter = "\033[?1049h\033[?25l";
constexpr const char* leave = "\033[?25h\033[?1049l";
constexpr const char* to_start = "\033[H";
constexpr const char* clear_line = "\033[K";
constexpr const char* clear_rest = "\033[J";
} // namespace

live_screen::live_screen(std::ostream& out)
    : out_(out), terminal_(&out == &std::cout && isatty(STDOUT_FILENO) == 1) {}

live_screen::~live_screen() {
    if (!page_.empty())
        out_ << leave << page_ << std::flush;
}

window_size live_screen::size() const {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == -1 || size.ws_row == 0 || size.ws_col == 0)
        return {24, 80};
    return {size.ws_row, size.ws_col};
}

// Overwriting, rather than clearing first, keeps the screen from flickering.
void live_screen::show(const std::string& page) {
    if (page_.empty())
        out_ << enter;
    out_ << to_start;
    std::size_t start = 0;
    for (std::size_t end; (end = page.find('\n', start)) != page.npos; start = end + 1)
        out_ << page.substr(start, end - start) << clear_line << '\n';
    out_ << clear_rest << std::flush;
    page_ = page;
}

} // namespace tools
