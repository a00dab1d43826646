// Feeding the page with samples and keys.
#include "live_output.h"

#include "figure_text.h"
#include "keys.h"
#include "page.h"
#include "terminal.h"

#include <algorithm>
#include <clocale>
#include <cstring>
#include <langinfo.h>
#include <set>
#include <unistd.h>
#include <utility>

namespace tools::live {

namespace {

class live_output : public output {
public:
    live_output(std::unique_ptr<terminal> shown_on, const live_options& options,
                std::ostringstream& messages)
        : terminal_(std::move(shown_on)), messages_(messages) {
        with_.unicode = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
        for (const std::string& host : options.hosts)
            boards_.push_back(std::make_unique<board_view>(host));
        state_.interval = options.interval;
        state_.replays = options.replays;
        state_.overview = boards_.size() > 1;
        draw();
    }

    bool shows_first_report() const override { return true; }

    void show(const shown_sample& each) override {
        if (!state_.paused)
            board(each.host).take(each);
    }

    void end_report(const std::string& host, long, bool away) override {
        if (!state_.paused)
            board(host).end_report(away, board_view::clock::now());
        changed_ = true;
    }

    int keyboard() const override { return STDIN_FILENO; }

    bool take_keys(session_controls& controls) override {
        if (!std::exchange(started_, true))
            controls.set_subjects(subjects_for(state_));
        for (int typed; (typed = terminal_->read_key()) != key_none;) {
            const key_effect effect = apply_key(typed, state_, boards_.size(), table_);
            if (effect.leaves)
                return false;
            if (effect.interval_changed)
                controls.set_interval(state_.interval);
            if (effect.subjects_changed)
                controls.set_subjects(subjects_for(state_));
            if (effect.playing_changed)
                controls.set_playing(state_.playing);
            if (effect.steps != 0)
                controls.step(effect.steps);
            changed_ = true;
        }
        take_messages();
        // Reports may be far apart, but the clock in the header and the time that a server has been
        // away must move on.
        const bool is_old = board_view::clock::now() - drawn_ > std::chrono::milliseconds(1100);
        if (changed_ || (is_old && clock_text() != drawn_clock_))
            draw();
        return true;
    }

private:
    board_view& board(const std::string& host) {
        const auto found = std::find_if(boards_.begin(), boards_.end(),
                                        [&](const auto& each) { return each->host == host; });
        return found == boards_.end() ? *boards_.front() : **found;
    }

    void take_messages() {
        const std::string said = messages_.str();
        if (!state_.message.empty() && board_view::clock::now() > message_until_) {
            state_.message.clear();
            changed_ = true;
        }
        if (said.empty())
            return;
        messages_.str({});
        const std::string line = said.substr(0, said.find('\n'));
        // The header says already whether a board answers.
        if (line.find("no answer from") == line.npos && line.find(" is back") == line.npos) {
            constexpr std::string_view prefix = "moncl: "; // here everything is
            state_.message = line.substr(line.rfind(prefix, 0) == 0 ? prefix.size() : 0);
            message_until_ = board_view::clock::now() + message_time;
            changed_ = true;
        }
    }

    std::string clock_text() const {
        if (!state_.replays)
            return local_text(std::chrono::system_clock::now());
        const auto time = boards_[std::min(state_.board, boards_.size() - 1)]->time;
        return local_date_text(time) + " " + local_text(time);
    }

    void draw() {
        canvas screen(terminal_->rows(), terminal_->columns());
        drawn_clock_ = clock_text();
        drawn_ = board_view::clock::now();
        table_ = draw_page(screen, boards_, state_, with_, drawn_clock_, board_view::clock::now());
        terminal_->show(screen);
        changed_ = false;
    }

    static constexpr std::chrono::seconds message_time{5};

    std::unique_ptr<terminal> terminal_;
    std::ostringstream& messages_;
    board_view::clock::time_point message_until_; // how long the latest is shown
    drawing_set with_;
    std::vector<std::unique_ptr<board_view>> boards_;
    page_state state_;
    table_extent table_;
    std::string drawn_clock_;
    board_view::clock::time_point drawn_;
    bool changed_ = false;
    bool started_ = false;
};
} // namespace

std::unique_ptr<output> open_live_screen(const live_options& options,
                                         std::ostringstream& messages) {
    auto taken = terminal::open(options.colour);
    if (!taken)
        return nullptr;
    return std::make_unique<live_output>(std::move(taken), options, messages);
}

std::vector<const subject*> live_subjects() {
    std::set<const subject*> names;
    page_state state;
    for (state.view = 0; state.view <= full_views.size(); ++state.view)
        for (const subject* each : subjects_for(state))
            names.insert(each);
    return {names.begin(), names.end()};
}

} // namespace tools::live
