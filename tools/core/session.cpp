// Taking reports from sources and giving them to an output.
#include "session.h"

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace tools {

// ---------------------------------------------------------------------------------- the mailbox

/// Reports on their way from the sources' threads. It holds few of each source: if the output
/// cannot keep up, the source waits, and later ticks are skipped.
class session::mailbox {
public:
    struct letter {
        std::size_t from = 0;
        bool last = false; ///< the source has ended; there is no report
        report content;
    };

    mailbox() : filled_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~mailbox() { ::close(filled_); }
    mailbox(const mailbox&) = delete;
    mailbox& operator=(const mailbox&) = delete;

    int descriptor() const { return filled_; }
    /// Waits for room. @return whether letters are still taken
    bool put(letter&& one) {
        std::unique_lock<std::mutex> guard(lock_);
        taken_.wait(guard, [this] { return letters_.size() < most_letters || closed_; });
        letters_.push_back(std::move(one));
        eventfd_write(filled_, 1);
        return !closed_;
    }
    /// Takes all that is there.
    std::deque<letter> take() {
        const std::lock_guard<std::mutex> guard(lock_);
        eventfd_t count;
        eventfd_read(filled_, &count);
        taken_.notify_all();
        return std::exchange(letters_, {});
    }
    /// Ends the waiting of all sources.
    void close() {
        const std::lock_guard<std::mutex> guard(lock_);
        closed_ = true;
        taken_.notify_all();
    }

private:
    static constexpr std::size_t most_letters = 64;

    int filled_;
    std::mutex lock_;
    std::condition_variable taken_;
    std::deque<letter> letters_;
    bool closed_ = false;
};

// ------------------------------------------------------------------------------------ a source

struct session::running {
    explicit running(std::unique_ptr<source> asked) : from(std::move(asked)) {}

    rate_former& rates_of(const subject& what) {
        return rates.try_emplace(&what, what).first->second;
    }

    std::unique_ptr<source> from;
    std::thread thread;
    std::map<const subject*, rate_former> rates;
    std::set<std::string> said; // texts said, once each
    std::set<const subject*> failing;
    bool away = false;
    std::string away_text; // said when it went away
    long reports = 0;
};

// ----------------------------------------------------------------------------------- the session

session::session(std::vector<std::unique_ptr<source>> sources, session_plan plan, output& shown,
                 writer& to, std::ostream& err)
    : plan_(std::move(plan)), output_(shown), to_(to), err_(err),
      mailbox_(std::make_unique<mailbox>()) {
    for (auto& each : sources)
        sources_.push_back(std::make_unique<running>(std::move(each)));
}

session::~session() {
    mailbox_->close();
    for (const auto& each : sources_) {
        each->from->cancel();
        if (each->thread.joinable())
            each->thread.join();
    }
}

// Signals that are handled interrupt the thread that waits for reports, and no other.
void session::start() {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        sources_[i]->thread = std::thread([this, i] {
            mailbox::letter next;
            next.from = i;
            while (sources_[i]->from->next(next.content))
                if (!mailbox_->put(std::move(next)))
                    break;
            mailbox_->put({i, true, {}});
        });
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

bool session::run(stop_signal& stop) {
    const int keyboard = output_.keyboard();
    const int timeout_ms = keyboard == -1 ? -1 : 500;
    if (keyboard != -1)
        output_.take_keys(*this); // the output may choose what is asked for first
    start();
    std::size_t ended = 0;
    while (ended < sources_.size() && !to_.is_closed() &&
           !stop.wait_for(mailbox_->descriptor(), keyboard, timeout_ms)) {
        for (mailbox::letter& each : mailbox_->take()) {
            ended += each.last;
            if (!each.last)
                take(*sources_[each.from], each.content);
        }
        if (keyboard != -1 && !output_.take_keys(*this))
            break;
    }
    return finish();
}

void session::set_interval(double seconds) {
    for (const auto& each : sources_)
        each->from->set_interval(seconds);
}

void session::set_subjects(const std::vector<const subject*>& wanted) {
    for (const auto& each : sources_)
        each->from->set_subjects(wanted);
}

void session::step(long reports) {
    for (const auto& each : sources_)
        each->from->step(reports);
}

void session::set_playing(bool on) {
    for (const auto& each : sources_)
        each->from->set_playing(on);
}

namespace {
// Why a query was refused.
std::vector<std::string> reasons(const answer& refused) {
    const std::vector<std::string>& own = refused.figures.faults;
    return own.empty() ? std::vector{refusal_text(*refused.what, refused.code)} : own;
}
} // namespace

void session::take(running& from, report& got) {
    if (got.away) {
        const std::string text = from.from->away_text();
        if (!from.away)
            say(from, from.away_text = text);
        else if (text != from.away_text)
            say_once(from, text); // the cause is another one now
    }
    if (!got.away && from.away)
        say(from, from.from->host() + " is back");
    from.away = got.away;
    if (got.gap)
        for (auto& each : from.rates)
            each.second.forget();
    for (answer& each : got.answers)
        take_answer(from, each, got.base);
    if (got.base && !output_.shows_first_report())
        return;
    output_.end_report(from.from->host(), from.reports++, got.away);
    to_.flush();
}

void session::take_answer(running& from, answer& got, bool base) {
    const subject& what = *got.what;
    rate_former& rates = from.rates_of(what);
    if (got.code < 0 || !got.failure.empty()) {
        // After an outage the next sample must not be compared with one from before it.
        rates.forget();
        from.failing.insert(&what);
        const bool refused = got.failure.empty() && got.is_servers_own;
        output_.miss({what, from.from->host(), got.figures, got.code,
                      refused ? reasons(got).front() : std::string()});
        if (!got.failure.empty())
            say_once(from, "cannot read all of an answer: " + got.failure);
        else if (got.is_servers_own && plan_.named)
            for (const std::string& text : reasons(got))
                say_once(from, text);
        return;
    }
    from.failing.erase(&what);
    take_faults(from, got.figures);
    if (plan_.library_report) {
        if (!base)
            to_.add(got.library_report);
        return;
    }
    select_rows(what, got.figures);
    const auto interval = rates.compare(got.figures);
    for (const std::string& text : got.figures.notes)
        say_once(from, text);
    sampled_ = sampled_ || !got.figures.rows.empty();
    reached_ = true;
    if (!base || output_.shows_first_report())
        output_.show({what, from.from->host(), got.figures, interval});
}

// On the page without a subject nothing was asked for by name, so nothing is at fault.
void session::take_faults(running& from, const sample& figures) {
    if (!plan_.named)
        return;
    for (const std::string& text : figures.faults)
        say_once(from, text);
    well_ = well_ && figures.faults.empty();
}

namespace {
// A label as it is written on the command line.
std::string as_typed(const value& label) {
    if (const auto* natural = std::get_if<std::uint64_t>(&label))
        return std::to_string(*natural);
    if (const auto* integer = std::get_if<std::int64_t>(&label))
        return std::to_string(*integer);
    const auto* name = std::get_if<std::string>(&label);
    return name == nullptr ? std::string() : *name;
}
} // namespace

// Keeps the rows that were asked for by name.
void session::select_rows(const subject& what, sample& figures) {
    if (what.selects_names)
        names_seen_.insert(plan_.chosen.names.begin(), plan_.chosen.names.end());
    if (plan_.chosen.names.empty() || what.selects_names)
        return;
    const auto is_chosen = [&](const row& r) {
        for (std::size_t i = 0; i < r.values.size(); ++i) {
            if (what.fields[i].what != kind::label)
                continue;
            const std::string name = as_typed(r.values[i]);
            for (const std::string& wanted : plan_.chosen.names) {
                if (name != wanted)
                    continue;
                names_seen_.insert(wanted);
                return true;
            }
        }
        return false;
    };
    auto& rows = figures.rows;
    rows.erase(
        std::remove_if(rows.begin(), rows.end(), [&](const row& r) { return !is_chosen(r); }),
        rows.end());
}

void session::say_once(running& from, const std::string& text) {
    if (from.said.insert(text).second)
        say(from, text);
}

void session::say(const running& from, const std::string& text) {
    err_ << "moncl: ";
    if (sources_.size() > 1 && text.find(from.from->host()) == text.npos)
        err_ << from.from->host() << ": ";
    err_ << text << std::endl;
}

void session::show_averages() {
    for (const auto& from : sources_)
        for (const subject* what : all_subjects())
            if (const auto rates = from->rates.find(what);
                rates != from->rates.end() && rates->second.averaged() > 1)
                output_.average({*what, from->from->host(), rates->second.average(), {}},
                                rates->second.averaged());
}

bool session::finish() {
    if (plan_.averages && !plan_.library_report)
        show_averages();
    output_.finish();
    to_.flush();
    if (to_.error() != 0) {
        err_ << "moncl: cannot write: " << std::strerror(to_.error()) << std::endl;
        return false;
    }
    bool well = well_;
    for (const std::string& name : plan_.chosen.names) {
        if (!reached_ || names_seen_.count(name) != 0)
            continue;
        err_ << "moncl: the server has no figures of " << name << std::endl;
        well = false;
    }
    if (!plan_.named && reached_ && !sampled_) {
        err_ << "moncl: there is nothing to show of this host" << std::endl;
        well = false;
    }
    for (const auto& each : sources_)
        well = well && !each->away && (!plan_.named || each->failing.empty());
    return well;
}

std::string refusal_text(const subject& what, int code) {
    if (code == -ENODEV && *what.lacking != '\0')
        return what.lacking;
    std::string own = what.explain == nullptr ? std::string() : what.explain(code);
    if (own.empty())
        own = std::string(what.name) + ": the server answers: " + std::strerror(-code);
    return own;
}

} // namespace tools
