// A page of text that changes in place on a terminal.
#ifndef MONCL_TOOLS_LIVE_SCREEN_H
#define MONCL_TOOLS_LIVE_SCREEN_H

#include <ostream>
#include <string>

namespace tools {

/// Size of a terminal's window, in characters.
struct window_size {
    std::size_t rows;
    std::size_t columns;
};

/// Shows pages on the terminal's second screen, from the first page on. Gives the first screen back
/// when destroyed, and leaves the last page there.
class live_screen {
public:
    explicit live_screen(std::ostream& out);
    ~live_screen();
    live_screen(const live_screen&) = delete;
    live_screen& operator=(const live_screen&) = delete;

    /// Whether the stream is standard output and that a terminal; else nothing here is for use.
    bool is_terminal() const { return terminal_; }
    /// The window's size now.
    window_size size() const;
    /// Replaces the page. @p page must fit the window; each line of it ends in "\n".
    void show(const std::string& page);

private:
    std::ostream& out_;
    bool terminal_;
    std::string page_;
};

} // namespace tools

#endif
