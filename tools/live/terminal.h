// The terminal: the one file that knows ncurses.
#ifndef MONCL_TOOLS_LIVE_TERMINAL_H
#define MONCL_TOOLS_LIVE_TERMINAL_H

#include "canvas.h"
#include "keys.h"

#include <memory>

namespace tools::live {

/// Shows canvases on the terminal's second screen and reads keys. Gives the terminal back as it was
/// when destroyed, and also when the process crashes. One at a time; belongs to one thread, which
/// alone may handle signals: suspending and continuing, and changes of size, are handled there.
class terminal {
public:
    /// Takes the terminal over.
    /// @return null if standard input or output is no terminal, or if the terminal cannot place its
    /// cursor
    static std::unique_ptr<terminal> open(bool colour);
    ~terminal();
    terminal(const terminal&) = delete;
    terminal& operator=(const terminal&) = delete;

    int rows() const;
    int columns() const;
    /// The next key typed; key_none if there is none. Never waits.
    int read_key();
    /// Shows @p screen, which has the size of the terminal; only what changed is written.
    void show(const canvas& screen);
    /// Clears the terminal before the next canvas, for what others wrote there.
    void redraw();

private:
    struct curses;
    explicit terminal(std::unique_ptr<curses> taken);

    std::unique_ptr<curses> curses_;
};

} // namespace tools::live

#endif
