// Samples from a server, asked over the library at steady intervals.
#ifndef MONCL_TOOLS_SERVER_SOURCE_H
#define MONCL_TOOLS_SERVER_SOURCE_H

#include "board.h"
#include "schedule.h"
#include "source.h"

#include <condition_variable>
#include <mutex>
#include <optional>

namespace tools {

/// A time by both clocks that a sample has.
struct moment {
    std::chrono::system_clock::time_point time;
    double seconds;
};
moment moment_now();

/// What a server is asked for, and when.
struct server_plan {
    std::vector<const subject*> subjects;
    std::vector<const subject*> unseen; ///< asked too, but not shown: what `monitor` is about
    selection chosen;
    schedule when;
    double first_interval = 0;   ///< seconds from the first report to the second; 0: as the others
    bool compares = false;       ///< takes a first report, for the next one to be compared with
    bool library_report = false; ///< ask for the library's own reports in place of samples
    /// Asks for what the board lacks, and for what changes slowly, only every ten seconds. The
    /// reports between are without it.
    bool sparing = false;
    std::function<moment()> clock = moment_now;
};

/// One server. One that is not there is asked again at every report.
class server_source : public source {
public:
    /// @param host how the server is called where there are several
    server_source(endpoint at, std::string host, server_plan plan);
    ~server_source() override;

    const std::string& host() const override { return host_; }
    bool next(report& into) override;
    void cancel() override;
    void set_interval(double seconds) override;
    void set_subjects(const std::vector<const subject*>& wanted) override;
    std::string away_text() const override;

    /// Asks for @p wanted at once, whatever the plan says of time; in place of `next`, and like it
    /// by one thread. Begins no query after @p until or `cancel`: subjects not asked by then have
    /// no answer.
    void ask_now(const std::vector<const subject*>& wanted, ticker::clock::time_point until,
                 report& into);

private:
    struct opened {
        const subject* what;
        asker ask;
        bool seen;
        double not_before = 0; ///< time of the next query, if it is asked sparingly
    };

    bool wait();
    ticker::clock::time_point next_tick();
    bool take(report& into, ticker::clock::time_point until);
    bool is_cancelled() const;
    int ask(const opened& each, answer& got);
    bool is_due(const opened& each);
    void ask_one(opened& each, report& into);

    board server_;
    std::string host_;
    server_plan plan_;
    std::vector<opened> subjects_;
    ticker ticks_;
    long reports_ = 0;   // begun so far
    bool based_ = false; // the report to compare with has been taken
    bool ended_ = false; // nothing is left to ask for
    long done_ = 0;
    mutable std::mutex lock_; // of the rest
    std::condition_variable wake_;
    bool cancelled_ = false;
    std::string away_text_;   // of the latest report without an answer
    double new_interval_ = 0; // 0: none was set
    std::optional<std::vector<const subject*>> new_subjects_; // nothing: none were set
    std::vector<const subject*> wanted_;                      // of `subjects_`
};

} // namespace tools

#endif
