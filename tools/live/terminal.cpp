// Talking to the terminal through ncurses.
#include "terminal.h"

#define NCURSES_WIDECHAR 1
#define NCURSES_NOMACROS 1
#include <algorithm>
#include <csignal>
#include <curses.h>
#include <cwchar>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace tools::live {

namespace {

/// The colour and attributes of a look.
struct appearance {
    short foreground; ///< one of ncurses' colours; -1: the terminal's own
    attr_t attributes;
};

// In the order of `look`.
const appearance appearances[look_count] = {
    {-1, A_NORMAL},            // plain
    {-1, A_DIM},               // dim
    {-1, A_REVERSE},           // title
    {COLOR_CYAN, A_NORMAL},    // name
    {COLOR_GREEN, A_NORMAL},   // user
    {COLOR_BLUE, A_NORMAL},    // nice
    {COLOR_RED, A_NORMAL},     // system
    {COLOR_YELLOW, A_NORMAL},  // iowait
    {COLOR_MAGENTA, A_NORMAL}, // steal
    {COLOR_CYAN, A_NORMAL},    // graph
    {COLOR_YELLOW, A_BOLD},    // warning
    {COLOR_RED, A_BOLD},       // alarm
};

// Prepared in advance, because the crash handler that restores the terminal by them must not
// allocate.
termios original_modes;
std::string leave_sequence;
constexpr int crashes[] = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL};

void give_back_and_die(int number) {
    [[maybe_unused]] const ssize_t n =
        write(STDOUT_FILENO, leave_sequence.data(), leave_sequence.size());
    tcsetattr(STDIN_FILENO, TCSANOW, &original_modes);
    std::signal(number, SIG_DFL);
    raise(number);
}

void append_capability(std::string& to, const char* name) {
    const char* text = tigetstr(name);
    if (text != nullptr && text != reinterpret_cast<const char*>(-1))
        to += text;
}

int translate(int code, bool is_function_key) {
    if (!is_function_key) {
        if (code == '\n' || code == '\r')
            return key_enter;
        if (code == '\t')
            return key_tab;
        return code == 0x7F || code == '\b' ? static_cast<int>(key_backspace) : code;
    }
    switch (code) {
    case KEY_UP:
        return key_up;
    case KEY_DOWN:
        return key_down;
    case KEY_LEFT:
        return key_left;
    case KEY_RIGHT:
        return key_right;
    case KEY_PPAGE:
        return key_page_up;
    case KEY_NPAGE:
        return key_page_down;
    case KEY_HOME:
        return key_home;
    case KEY_END:
        return key_end;
    case KEY_BACKSPACE:
        return key_backspace;
    case KEY_ENTER:
        return key_enter;
    case KEY_RESIZE:
        return key_resize;
    default:
        return key_none;
    }
}
} // namespace

struct terminal::curses {
    SCREEN* screen = nullptr;
    bool colour = false;
    attr_t attributes[look_count] = {};
    short pairs[look_count] = {};
};

std::unique_ptr<terminal> terminal::open(bool colour) {
    if (isatty(STDIN_FILENO) != 1 || isatty(STDOUT_FILENO) != 1 ||
        tcgetattr(STDIN_FILENO, &original_modes) != 0)
        return nullptr;
    auto taken = std::make_unique<curses>();
    // initscr would end the process if the terminal is unknown.
    taken->screen = newterm(nullptr, stdout, stdin);
    if (taken->screen == nullptr)
        return nullptr;
    const char* place = tigetstr("cup");
    if (place == nullptr || place == reinterpret_cast<const char*>(-1)) {
        endwin();
        delscreen(taken->screen);
        return nullptr;
    }
    taken->colour = colour && has_colors();
    return std::unique_ptr<terminal>(new terminal(std::move(taken)));
}

terminal::terminal(std::unique_ptr<curses> taken) : curses_(std::move(taken)) {
    cbreak();
    noecho();
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    set_escdelay(25);
    curs_set(0);
    if (curses_->colour) {
        start_color();
        use_default_colors();
    }
    for (int i = 0; i < look_count; ++i) {
        const appearance& each = appearances[i];
        curses_->attributes[i] = each.attributes;
        if (curses_->colour && each.foreground >= 0) {
            curses_->pairs[i] = static_cast<short>(i + 1);
            init_pair(curses_->pairs[i], each.foreground, -1);
        }
    }
    leave_sequence.clear();
    for (const char* name : {"sgr0", "cnorm", "rmkx", "rmcup"})
        append_capability(leave_sequence, name);
    for (const int number : crashes)
        std::signal(number, give_back_and_die);
}

terminal::~terminal() {
    for (const int number : crashes)
        std::signal(number, SIG_DFL);
    flushinp(); // keys that were typed and not read must not reach the shell
    endwin();
    delscreen(curses_->screen);
}

int terminal::rows() const {
    return LINES;
}

int terminal::columns() const {
    return COLS;
}

int terminal::read_key() {
    wint_t code = 0;
    const int kind = get_wch(&code);
    if (kind == ERR)
        return key_none;
    return translate(static_cast<int>(code), kind == KEY_CODE_YES);
}

void terminal::show(const canvas& screen) {
    erase();
    for (int row = 0; row < screen.rows(); ++row) {
        int end = screen.columns();
        while (end > 0 && screen.at(row, end - 1).character == L' ' &&
               appearances[static_cast<int>(screen.at(row, end - 1).how)].attributes == A_NORMAL)
            --end;
        move(row, 0);
        std::wstring run;
        for (int column = 0; column < end;) {
            const look how = screen.at(row, column).how;
            run.clear();
            for (; column < end && screen.at(row, column).how == how; ++column)
                if (const wchar_t c = screen.at(row, column).character; c != 0)
                    run += c;
            const auto index = static_cast<std::size_t>(how);
            attr_set(curses_->attributes[index], curses_->pairs[index], nullptr);
            addnwstr(run.data(), static_cast<int>(run.size()));
        }
    }
    attr_set(A_NORMAL, 0, nullptr);
    refresh();
}

void terminal::redraw() {
    clearok(stdscr, TRUE);
}

} // namespace tools::live
