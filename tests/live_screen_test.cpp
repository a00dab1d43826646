// The live screen: its page at several sizes as golden screens, what keys do, and the real program
// in a terminal. MONCL_REWRITE_GOLDEN=1 rewrites the screens.
#include "board_of_files.h"
#include "child_process.h"
#include "console_run.h"
#include "drawing.h"
#include "file_text.h"
#include "keys.h"
#include "page.h"
#include "patterns.h"

#include <clocale>
#include <fstream>

using namespace tools;
using namespace tools::live;

namespace {

/// Feeds a board instead of a terminal.
class board_feeder : public output {
public:
    explicit board_feeder(board_view& fed) : fed_(fed) {}
    bool shows_first_report() const override { return true; }
    void show(const shown_sample& each) override { fed_.take(each); }
    void end_report(const std::string&, long, bool away) override {
        fed_.end_report(away, board_view::clock::time_point());
    }

private:
    board_view& fed_;
};

// The boards of a page: one of files after two reports, a second apart.
std::vector<std::unique_ptr<board_view>> boards_after_two_reports() {
    board_of_files board;
    std::vector<std::unique_ptr<board_view>> boards;
    boards.push_back(std::make_unique<board_view>("board"));
    board_feeder feeder(*boards[0]);
    console_run run({board.port()}, {});
    for (const subject* each : subjects_for(page_state()))
        run.subjects.push_back(each->name);
    run.shown_by = &feeder;
    run.run();
    EXPECT_EQ(run.err, "");
    return boards;
}

std::string screen(const std::vector<std::unique_ptr<board_view>>& boards, const page_state& state,
                   int columns, int rows, bool unicode = true) {
    canvas drawn(rows, columns);
    draw_page(drawn, boards, state, {unicode}, "12:34:56",
              board_view::clock::time_point() + std::chrono::seconds(4));
    return drawn.text();
}

void expect_golden(const std::string& name, std::string shown) {
    shown.erase(shown.find_last_not_of('\n') + 1); // what is left free below
    shown += '\n';
    const std::string path = std::string(TEST_DATA "/live/") + name + ".txt";
    if (std::getenv("MONCL_REWRITE_GOLDEN") != nullptr)
        std::ofstream(path) << shown;
    EXPECT_EQ(shown, file_text(path)) << name;
}
} // namespace

TEST(live_page, fits_each_size) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const auto boards = boards_after_two_reports();
    expect_golden("40x12_ascii", screen(boards, {}, 40, 12, false));
    expect_golden("80x24", screen(boards, {}, 80, 24));
    expect_golden("200x60", screen(boards, {}, 200, 60));
    page_state disks;
    disks.view = 3;
    expect_golden("60x16_disks", screen(boards, disks, 60, 16));
    // Whatever the size, nothing is drawn outside of it.
    for (int columns = 1; columns < 250; columns += 7)
        for (int rows = 1; rows < 70; rows += 3)
            screen(boards, {}, columns, rows);
}

TEST(live_page, says_how_long_a_board_is_away_and_sums_up_several) {
    auto boards = boards_after_two_reports();
    boards.push_back(std::make_unique<board_view>("10.0.0.5:5757"));
    boards[1]->end_report(true, {});
    boards[1]->last_answer = {};
    page_state state;
    state.board = 1;
    EXPECT_NE(
        screen(boards, state, 80, 24).find("10.0.0.5:5757  12:34:56  every 1 s  no answer for 4 s"),
        std::string::npos);
    state.overview = true;
    expect_golden("80x6_overview", screen(boards, state, 80, 6));
}

TEST(live_keys, change_the_page) {
    const table_extent table{100, 10};
    const struct {
        const char* name;
        std::vector<int> typed;
        std::function<bool(const page_state&)> holds;
    } cases[] = {
        {"by I/O, then network",
         {'I', 'N'},
         [](auto& s) { return s.order_by == "network_bytes_per_second"; }},
        {"pause", {' '}, [](auto& s) { return s.paused; }},
        {"longer interval", {'+'}, [](auto& s) { return s.interval == 2; }},
        {"shorter interval", {'-', '-'}, [](auto& s) { return s.interval == 0.2; }},
        {"total of the CPUs", {'1'}, [](auto& s) { return !s.every_cpu; }},
        {"back from disks", {'4', key_escape}, [](auto& s) { return s.view == 0; }},
        {"next block", {key_tab, key_tab}, [](auto& s) { return s.view == 2; }},
        {"page down twice", {key_page_down, key_page_down}, [](auto& s) { return s.scroll == 20; }},
        {"beyond the end", {key_end, key_down}, [](auto& s) { return s.scroll == 90; }},
        {"up at the start", {key_up, key_page_up}, [](auto& s) { return s.scroll == 0; }},
        {"filter, with a key's letter in it",
         {'/', 'q', 'x', key_backspace, key_enter},
         [](auto& s) { return s.filter == "q" && !s.typing_filter; }},
        {"filter with an umlaut taken back",
         {'/', 'a', 0xE4, key_backspace},
         [](auto& s) { return s.filter == "a" && s.typing_filter; }},
        {"no filter", {'/', 'x', key_escape}, [](auto& s) { return s.filter.empty(); }},
        {"all boards", {'b', 'b'}, [](auto& s) { return s.overview && s.board == 0; }},
        {"help and back", {'h', '?'}, [](auto& s) { return !s.help; }},
        {"a key without a meaning", {'z', 0x263A}, [](auto& s) { return s.view == 0; }},
    };
    for (const auto& each : cases) {
        page_state state;
        for (const int typed : each.typed)
            EXPECT_FALSE(apply_key(typed, state, 2, table).leaves) << each.name;
        EXPECT_TRUE(each.holds(state)) << each.name;
    }
    page_state state;
    EXPECT_TRUE(apply_key('q', state, 1, table).leaves);
    EXPECT_EQ(apply_key(key_left, state, 1, table).steps, 0) << "a server has no past";
    state.replays = true;
    EXPECT_TRUE(apply_key(' ', state, 1, table).playing_changed && state.playing && !state.paused);
    EXPECT_EQ(apply_key(key_left, state, 1, table).steps, -1);
    EXPECT_FALSE(state.playing);
}

TEST(live_graph, is_drawn_from_right_to_left) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    history values;
    for (const double v : {100.0, 0.0, 50.0, 25.0})
        values.add(v);
    values.add(std::nullopt);
    EXPECT_EQ(draw_graph(values, 100, 1, 6, {true})[0], " \u2588 \u2584\u2582 ");
    EXPECT_EQ(draw_graph(values, 100, 1, 6, {false})[0], " # =: ");
    EXPECT_EQ(draw_graph(values, 100, 2, 3, {true}),
              (std::vector<std::string>{"\u28B8  ", "\u28B8\u28B8\u2844"}))
        << "two values in a character, four levels of dots in a line";
    styled_line items[] = {{{"first", look::plain}}, {{"second", look::plain}}};
    canvas cut(1, 20);
    cut.put(0, flow("Temp", {items[0], items[1], items[0], items[1]}, 20, 1)[0]);
    EXPECT_EQ(cut.text(), "Temp  first +3 more\n");
    canvas wide(1, 5);
    wide.put(0, {{"a\u6F22\u5B57\u00E4", look::plain}});
    EXPECT_EQ(wide.text(), "a\u6F22\u5B57\n") << "wide characters take two columns";
    std::setlocale(LC_CTYPE, "C");
    wide.put(0, {{"d\u00E4mon", look::plain}});
    EXPECT_EQ(wide.text(), "d?mon\n");
}

namespace {
/// moncl in a terminal of its own; each test has a tmux server of its own.
class terminal_session {
public:
    terminal_session(const std::string& command, int columns, int rows,
                     const std::string& environment = "LC_ALL=C.UTF-8") {
        run({"new-session", "-d", "-x", std::to_string(columns), "-y", std::to_string(rows),
             "env PS1='$ ' bash --norc --noprofile -i"});
        wait_for("\\$");
        // What became of the terminal stands on its first screen in the end.
        type("before=$(stty -g); " + environment + " " TEST_EMULATOR " " MONCL_PROGRAM " " +
             command + "; echo status $?; [ $before = $(stty -g) ] && echo terminal as before\n");
    }
    ~terminal_session() { run({"kill-server"}); }
    terminal_session(const terminal_session&) = delete;
    terminal_session& operator=(const terminal_session&) = delete;

    /// Types the text, or presses one key by its name, such as "Escape".
    void type(const std::string& keys) const { run({"send-keys", keys}); }
    std::string screen() const { return run({"capture-pane", "-p"}); }
    /// Waits until the screen matches @p pattern, at most 20 s.
    std::string wait_for(const std::string& pattern) const {
        std::string shown;
        for (int turn = 0; turn < 200; ++turn) {
            shown = screen();
            if (has_match(shown, pattern))
                return shown;
            usleep(100000);
        }
        ADD_FAILURE() << "no " << pattern << " in:\n" << shown;
        return shown;
    }
    std::string run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"tmux", "-u", "-f", "/dev/null", "-L", name_});
        child_process tmux(arguments);
        tmux.wait();
        return tmux.out;
    }
    /// The process of moncl.
    int program() const {
        std::string shell = run({"display", "-p", "#{pane_pid}"});
        shell.pop_back();
        child_process found({"pgrep", "-P", shell});
        found.wait();
        return std::stoi(found.out);
    }
    /// Checks that the terminal is as it was, and the program ended with @p status.
    void expect_restored(const std::string& status) const {
        wait_for("status " + status + "\nterminal as before\n");
        EXPECT_EQ(run({"display", "-p", "#{alternate_on}#{cursor_flag}"}), "01\n");
    }

private:
    static inline int count = 0;
    std::string name_ = "moncl_test_" + std::to_string(getpid()) + "_" + std::to_string(count++);
};
} // namespace

TEST(live_screen, shows_the_board_and_follows_keys_and_size) {
    const terminal_session live("1 --simulate-board", 80, 24);
    const std::string shown = live.wait_for("PID .*%CPU.* COMMAND");
    for (const char* part :
         {"moncl ", "every 1 s", "Mem ", "CPU ", "Net ", "Disk ", "NNU ", "zone0 ", "Pipe "})
        EXPECT_NE(shown.find(part), std::string::npos) << part << " in:\n" << shown;
    live.type("+");
    live.wait_for("every 2 s");
    live.type("3");
    live.wait_for("IRQ +CPU");
    live.type("Escape");
    live.wait_for("COMMAND");
    live.run({"resize-window", "-x", "40", "-y", "12"});
    live.wait_for("^moncl .*\n all");
    live.run({"resize-window", "-x", "200", "-y", "60"});
    live.wait_for("Pipe  pipe 0 .*pym \\d+>\\d+");
    live.type("/nosuchprocess");
    live.wait_for("/nosuchprocess_");
    live.type("Enter");
    live.wait_for("only rows with");
    live.type("q");
    live.expect_restored("0");
    EXPECT_EQ(live.screen().find("nosuchprocess"), std::string::npos) << "typed to the page alone";
}

TEST(live_screen, gives_the_terminal_back_however_it_ends) {
    const struct {
        int signal;
        const char* status;
    } ends[] = {{SIGTERM, "0"}, {SIGINT, "0"}, {SIGHUP, "0"}, {SIGQUIT, "0"}, {SIGSEGV, "139"}};
    for (const auto& each : ends) {
        const terminal_session live("", 80, 24);
        live.wait_for("COMMAND");
        kill(live.program(), each.signal);
        live.expect_restored(each.status);
    }
}

TEST(live_screen, is_suspended_and_goes_on) {
    const terminal_session live("1 --simulate-board", 80, 24);
    live.wait_for("COMMAND");
    live.type("C-z");
    live.wait_for("Stopped");
    EXPECT_EQ(live.run({"display", "-p", "#{alternate_on}"}), "0\n");
    live.type("fg\n");
    live.wait_for("every 1 s[^]*COMMAND");
    live.type("q");
    live.wait_for("fg\n");
    EXPECT_EQ(live.run({"display", "-p", "#{alternate_on}#{cursor_flag}"}), "01\n");
}

TEST(live_screen, says_that_a_server_is_away_and_back) {
    auto server = std::make_unique<server_process>();
    const int port = server->port;
    const std::string at = "127.0.0.1:" + std::to_string(port);
    const terminal_session live("0.5 --connect " + at, 80, 24);
    live.wait_for("moncl " + at + "[^]*COMMAND");
    server.reset();
    live.wait_for("no answer for \\d+ s");
    server = std::make_unique<server_process>(port);
    live.wait_for("every 0.5 s  \\? help[^]*COMMAND");
    live.type("q");
    live.expect_restored("0");
}

TEST(live_screen, is_left_out_where_the_terminal_cannot) {
    const terminal_session dumb("--simulate-board", 80, 50, "TERM=dumb");
    EXPECT_NE(dumb.wait_for("status \\d").find("%usage"), std::string::npos);
    const terminal_session plain("1", 80, 24, "NO_COLOR=1 LC_ALL=C");
    const std::string shown = plain.wait_for("COMMAND");
    EXPECT_TRUE(
        std::all_of(shown.begin(), shown.end(), [](char c) { return c == '\n' || c >= ' '; }));
    EXPECT_FALSE(has_match(plain.run({"capture-pane", "-p", "-e"}), "\033\\[3[0-7]m"))
        << "a colour";
}
