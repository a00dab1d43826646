// One run of the program: reports from all sources at once, given to one output.
#ifndef MONCL_TOOLS_SESSION_H
#define MONCL_TOOLS_SESSION_H

#include "output.h"
#include "rates.h"
#include "source.h"
#include "stop_signal.h"

#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace tools {

/// What a session does with its samples.
struct session_plan {
    selection chosen;            ///< rows to show
    bool named = false;          ///< the subjects were asked for by name: one that fails is a fault
    bool library_report = false; ///< show the library's reports in place of samples
    bool averages = false;       ///< a run that ends shows its averages
};

/// What a user is told where a server answers with the negative @p code.
std::string refusal_text(const subject& what, int code);

/// Runs sources, each in a thread of its own, so that a silent one does not delay the others.
class session : private session_controls {
public:
    /// @param shown what samples are given to
    /// @param to    where that writes
    /// @param err   what goes wrong is said here
    session(std::vector<std::unique_ptr<source>> sources, session_plan plan, output& shown,
            writer& to, std::ostream& err);
    ~session() override;

    /// Runs until all sources have ended, @p stop is set, or the reader of the output has gone.
    /// @return whether all that was asked for could be shown
    bool run(stop_signal& stop);

private:
    struct running; // a source and what is known of it
    class mailbox;  // reports on their way

    void start();
    void set_interval(double seconds) override;
    void set_subjects(const std::vector<const subject*>& wanted) override;
    void step(long reports) override;
    void set_playing(bool on) override;
    void take(running& from, report& got);
    void take_answer(running& from, answer& got, bool base);
    void take_faults(running& from, const sample& figures);
    void select_rows(const subject& what, sample& figures);
    void say_once(running& from, const std::string& text);
    void say(const running& from, const std::string& text);
    void show_averages();
    bool finish();

    session_plan plan_;
    output& output_;
    writer& to_;
    std::ostream& err_;
    std::unique_ptr<mailbox> mailbox_;
    std::vector<std::unique_ptr<running>> sources_;
    std::set<std::string> names_seen_;
    bool reached_ = false; // a query was answered
    bool sampled_ = false; // an answer had rows
    bool well_ = true;     // nothing that was asked for by name was missing
};

} // namespace tools

#endif
