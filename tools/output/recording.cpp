// Writing a recording.
#include "recording.h"

#include "layout.h"
#include "subject_tables.h"
#include "time_text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace tools {

namespace {
constexpr std::size_t most_held_back = 600; // ticks, while the file cannot be written
constexpr std::size_t most_notes = 1000;    // of a run
constexpr std::uint64_t usual_wal = 4U << 20;
constexpr std::uint64_t least_bytes = 1U << 20;

/// Keeps other processes from recording to the same file.
class writer_lock {
public:
    explicit writer_lock(const std::string& path)
        : fd_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
        if (fd_ == -1)
            throw std::runtime_error("cannot open " + path + ": " + std::strerror(errno));
        if (flock(fd_, LOCK_EX | LOCK_NB) == 0)
            return;
        close(fd_);
        throw std::runtime_error("another process is recording to " + path);
    }
    // Closing any descriptor of the file releases the locks that SQLite holds on it, so this one is
    // closed last.
    ~writer_lock() { close(fd_); }
    writer_lock(const writer_lock&) = delete;
    writer_lock& operator=(const writer_lock&) = delete;

private:
    int fd_;
};
} // namespace

std::string duration_fault(const std::string& text) {
    return read_duration(text) ? "" : "is a duration such as 90, 15m, 12h or 7d";
}

std::string size_fault(const std::string& text) {
    const auto bytes = read_size(text);
    return bytes && *bytes >= least_bytes ? "" : "is a size such as 200M or 2G, and at least 1M";
}

// -------------------------------------------------------------------------------------- the file

class recording::file {
public:
    file(std::string path, recording_options options, std::ostream& err);

    void add(const shown_sample& each);
    void miss(const missing_sample& each);
    void end_report(const std::string& host, bool away);
    void finish();
    std::uint64_t lost() const { return lost_; }

private:
    struct tick_row {
        std::int64_t tick;
        std::int64_t host;
        std::int64_t time;
        std::int64_t steady;
        bool away;
    };
    struct event {
        std::int64_t tick;
        std::int64_t host;
        std::string subject;
        const char* what;
        int code;
        std::string text;
    };
    struct host_state {
        std::int64_t id = 0;
        std::int64_t tick = 0;   // of the report in hand, or of the latest
        std::int64_t before = 0; // the one before it
        bool in_report = false;
        std::map<const subject*, int> refused; // codes
    };

    void check_or_create();
    void limit_log();
    host_state& begin_report(const std::string& host, const sample& figures);
    subject_tables& tables_of(const subject& what);
    void add_event(host_state& host, const subject& what, const char* kind, int code,
                   const std::string& text);
    void note(host_state& host, const subject& what, const char* kind,
              const std::vector<std::string>& texts);
    void commit();
    bool log_is_too_long();
    void write_block();
    void write_ticks();
    void write_events();
    void delete_oldest();
    void delete_before(std::int64_t tick);
    std::int64_t last_tick_before(std::chrono::system_clock::time_point time);
    bool is_too_large();
    void fail(const std::string& why);
    void drop_if_too_many();
    std::uint64_t log_bytes() const;

    const std::string path_;
    const recording_options options_;
    std::ostream& err_;
    writer_lock lock_;
    database file_;
    std::map<const subject*, subject_tables> subjects_;
    std::map<std::string, host_state> hosts_;
    std::set<std::string> notes_;
    std::vector<tick_row> ticks_;
    std::vector<event> events_;
    std::int64_t latest_ = 0;  // tick; before the first report the one that it will have
    std::int64_t deleted_ = 0; // all ticks below it are deleted
    std::int64_t run_ = 0;
    std::uint64_t page_bytes_ = 0;
    std::uint64_t main_bytes_ = 0; // how large the file may become without its log; 0: no limit
    double started_ = -1;          // sample.seconds of the first report
    double written_ = 0;           // sample.seconds of the latest report that was written
    double now_ = 0;               // of the latest report
    std::chrono::system_clock::time_point time_;
    std::chrono::system_clock::time_point start_time_;
    std::uint64_t lost_ = 0;
    std::uint64_t lost_before_ = 0; // how much of it was reported
    bool finished_ = false;
    std::string failing_; // why the file cannot be written now
    bool full_of_series_ = false;
};

recording::file::file(std::string path, recording_options options, std::ostream& err)
    : path_(std::move(path)), options_(options), err_(err), lock_(path_),
      file_(path_, SQLITE_OPEN_READWRITE) {
    try {
        check_or_create();
    } catch (const sqlite_error& e) {
        throw std::runtime_error(e.code == SQLITE_NOTADB
                                     ? path_ + " is no recording of moncl"
                                     : "cannot record to " + path_ + ": " + e.what());
    }
}

void recording::file::check_or_create() {
    sqlite3_busy_timeout(file_.handle(), 1000);
    if (file_.integer("PRAGMA schema_version") == 0)
        file_.run("PRAGMA page_size = 2048"); // a commit writes the last page of each table again
    else
        check_schema(file_, path_);
    file_.run("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL");
    file_.run("BEGIN IMMEDIATE");
    create_common_tables(file_);
    file_.run("COMMIT");
    limit_log();
    latest_ = file_.integer("SELECT max(tick) FROM ticks") + 1;
    deleted_ = file_.integer("SELECT min(tick) FROM ticks");
    run_ = file_.integer("SELECT max(id) FROM runs") + 1;
    statement ask(file_, "SELECT id, name FROM hosts");
    while (ask.step())
        hosts_[ask.text(1)].id = ask.integer(0);
    statement recorded(file_, "SELECT DISTINCT subject FROM fields");
    std::vector<const subject*> subjects;
    while (recorded.step())
        if (const subject* known = find_subject(recorded.text(0)))
            subjects.push_back(known);
    recorded.reset(); // tables cannot be made while it runs
    ask.reset();
    for (const subject* each : subjects)
        tables_of(*each);
}

void recording::file::limit_log() {
    page_bytes_ = static_cast<std::uint64_t>(file_.integer("PRAGMA page_size"));
    std::uint64_t log = std::min(usual_wal, options_.max_wal_bytes);
    if (options_.max_bytes > 0) {
        log = std::min(log, options_.max_bytes / 4);
        main_bytes_ = options_.max_bytes - log;
    }
    const std::string pages = std::to_string(log / 2 / page_bytes_);
    file_.integer("PRAGMA wal_autocheckpoint = " + pages);
    file_.integer("PRAGMA journal_size_limit = " + std::to_string(log));
}

// Numbers of ticks grow with time, for all hosts together.
recording::file::host_state& recording::file::begin_report(const std::string& host,
                                                           const sample& figures) {
    host_state& of = hosts_[host];
    if (of.id == 0)
        of.id = static_cast<std::int64_t>(hosts_.size());
    now_ = figures.seconds;
    time_ = figures.time;
    if (started_ < 0) {
        started_ = now_;
        written_ = now_;
        start_time_ = time_;
    }
    if (!std::exchange(of.in_report, true)) {
        of.before = of.tick;
        of.tick = std::max(latest_, of.tick + 1);
        latest_ = of.tick;
    }
    return of;
}

subject_tables& recording::file::tables_of(const subject& what) {
    return subjects_.try_emplace(&what, file_, what, latest_ - 1).first->second;
}

void recording::file::add(const shown_sample& each) {
    host_state& host = begin_report(each.host, each.figures);
    if (host.refused.erase(&each.what) > 0)
        add_event(host, each.what, "answered", 0, {});
    note(host, each.what, "note", each.figures.notes);
    note(host, each.what, "fault", each.figures.faults);
    bool all = true;
    try {
        all = tables_of(each.what).add(host.id, host.tick, host.before, each.figures);
    } catch (const sqlite_error& e) { // there is no room for new tables
        fail(e.what());
    }
    if (!all && !std::exchange(full_of_series_, true))
        err_ << "moncl: " << path_ << " has no room for more rows of new names: those of "
             << each.what.name << " are left out; record to a new file" << std::endl;
}

void recording::file::miss(const missing_sample& each) {
    host_state& host = begin_report(each.host, each.figures);
    if (each.why.empty())
        return;
    const auto [known, is_new] = host.refused.emplace(&each.what, each.code);
    if (is_new || std::exchange(known->second, each.code) != each.code)
        add_event(host, each.what, "refused", each.code, each.why);
}

void recording::file::add_event(host_state& host, const subject& what, const char* kind, int code,
                                const std::string& text) {
    events_.push_back({host.tick, host.id, what.name, kind, code, text});
}

void recording::file::note(host_state& host, const subject& what, const char* kind,
                           const std::vector<std::string>& texts) {
    for (const std::string& text : texts)
        if (notes_.size() < most_notes &&
            notes_.insert(std::to_string(host.id) + ' ' + what.name + ' ' + text).second)
            add_event(host, what, kind, 0, text);
}

void recording::file::end_report(const std::string& host, bool away) {
    host_state& of = hosts_[host];
    if (!std::exchange(of.in_report, false))
        return; // nothing was asked for
    const auto time =
        std::chrono::duration_cast<std::chrono::milliseconds>(time_.time_since_epoch()).count();
    const auto steady = static_cast<std::int64_t>((now_ - started_) * 1e6);
    ticks_.push_back({of.tick, of.id, time, steady, away});
    constexpr double tolerance = 0.05; // reports come a little early or late
    if (now_ - written_ >= options_.sync_seconds - tolerance)
        commit();
}

// ------------------------------------------------------------------------------------- writing it

void recording::file::commit() {
    written_ = now_;
    if (ticks_.empty())
        return;
    for (auto& each : subjects_)
        each.second.hand_over();
    if (!finished_ && log_is_too_long()) { // the last commit of a run is written all the same
        fail("a reader of it keeps its log at " + std::to_string(log_bytes() >> 20) + " MB");
        return;
    }
    try {
        write_block();
    } catch (const sqlite_error& e) {
        if (sqlite3_get_autocommit(file_.handle()) == 0)
            sqlite3_exec(file_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
        fail(e.what());
        return;
    }
    for (auto& each : subjects_)
        each.second.written(latest_);
    ticks_.clear();
    events_.clear();
    if (std::exchange(failing_, {}).empty())
        return;
    err_ << "moncl: " << path_ << " can be written again; reports lost: " << lost_ - lost_before_
         << std::endl;
    lost_before_ = lost_;
}

void recording::file::fail(const std::string& why) {
    if (failing_ != why)
        err_ << "moncl: cannot write " << path_ << ": " << why
             << "; recording goes on as soon as it can" << std::endl;
    failing_ = why;
    drop_if_too_many();
}

void recording::file::drop_if_too_many() {
    if (ticks_.size() < most_held_back)
        return;
    lost_ += ticks_.size();
    ticks_.clear();
    for (auto& each : subjects_)
        each.second.drop_rows();
}

std::uint64_t recording::file::log_bytes() const {
    struct stat log {};
    return stat((path_ + "-wal").c_str(), &log) == 0 ? static_cast<std::uint64_t>(log.st_size) : 0;
}

// While a reader is in the middle of a query SQLite cannot empty the log, so it grows until the
// reader has ended.
bool recording::file::log_is_too_long() {
    if (log_bytes() < options_.max_wal_bytes)
        return false;
    sqlite3_busy_timeout(file_.handle(), 0);
    sqlite3_wal_checkpoint_v2(file_.handle(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr,
                              nullptr);
    sqlite3_busy_timeout(file_.handle(), 1000);
    return log_bytes() >= options_.max_wal_bytes;
}

void recording::file::write_block() {
    file_.run("BEGIN IMMEDIATE");
    delete_oldest();
    for (auto& each : subjects_)
        each.second.write();
    write_ticks();
    write_events();
    file_.run("COMMIT");
}

void recording::file::write_ticks() {
    statement run(file_, "INSERT OR IGNORE INTO runs VALUES (?, ?, NULL)");
    run.bind(1, run_);
    run.bind(2, value(std::chrono::duration<double>(start_time_.time_since_epoch()).count()));
    run.run();
    statement host(file_, "INSERT OR IGNORE INTO hosts VALUES (?, ?)");
    for (const auto& [name, each] : hosts_) {
        host.bind(1, each.id);
        host.bind(2, std::string_view(name));
        host.run();
    }
    statement insert(file_, "INSERT INTO ticks VALUES (?, ?, ?, ?, ?, ?)");
    for (const tick_row& each : ticks_) {
        int parameter = 0;
        for (const std::int64_t number :
             {each.tick, each.host, each.time, run_, each.steady, std::int64_t{each.away}})
            insert.bind(++parameter, number);
        insert.run();
    }
}

void recording::file::write_events() {
    statement insert(file_, "INSERT INTO events VALUES (NULL, ?, ?, ?, ?, ?, ?)");
    for (const event& each : events_) {
        insert.bind(1, each.tick);
        insert.bind(2, each.host);
        insert.bind(3, std::string_view(each.subject));
        insert.bind(4, std::string_view(each.what));
        insert.bind(5, std::int64_t{each.code});
        insert.bind(6, std::string_view(each.text));
        insert.run();
    }
}

// SQLite uses the pages of deleted rows again, so the file stops growing but never shrinks.
void recording::file::delete_oldest() {
    const std::int64_t oldest = deleted_;
    if (options_.keep_seconds > 0) {
        const auto keep = std::chrono::duration<double>(options_.keep_seconds);
        const auto since =
            time_ - std::chrono::duration_cast<std::chrono::system_clock::duration>(keep);
        // Many ticks at once, not a few at each commit.
        if (const std::int64_t last = last_tick_before(since); last >= deleted_ + longest_span)
            delete_before(last + 1);
    }
    while (deleted_ + 1 < latest_ && is_too_large())
        delete_before(deleted_ + std::max(longest_span, (latest_ - deleted_) / 256));
    if (deleted_ == oldest)
        return;
    const std::string before = std::to_string(deleted_);
    file_.run("DELETE FROM runs WHERE id < (SELECT min(run) FROM ticks);"
              "DELETE FROM events WHERE tick < " +
              before +
              " AND id NOT IN (SELECT max(id) FROM events GROUP BY host, subject, what IN "
              "('refused', 'answered'))");
}

void recording::file::delete_before(std::int64_t tick) {
    deleted_ = std::min(tick, latest_);
    file_.run("DELETE FROM ticks WHERE tick < " + std::to_string(deleted_));
    for (auto& each : subjects_)
        each.second.delete_before(file_, deleted_);
}

std::int64_t recording::file::last_tick_before(std::chrono::system_clock::time_point time) {
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
    return file_.integer("SELECT tick FROM ticks WHERE time < " + std::to_string(ms) +
                         " ORDER BY time DESC LIMIT 1");
}

bool recording::file::is_too_large() {
    if (main_bytes_ == 0)
        return false;
    const std::int64_t used =
        file_.integer("PRAGMA page_count") - file_.integer("PRAGMA freelist_count");
    const std::uint64_t room = main_bytes_ / 32; // of the rows to come
    return static_cast<std::uint64_t>(used) * page_bytes_ + room > main_bytes_;
}

void recording::file::finish() {
    if (started_ < 0 || std::exchange(finished_, true))
        return;
    commit();
    lost_ += ticks_.size();
    ticks_.clear();
    if (!failing_.empty())
        return;
    statement end(file_, "UPDATE runs SET ended = ? WHERE id = ?");
    end.bind(1, value(std::chrono::duration<double>(time_.time_since_epoch()).count()));
    end.bind(2, run_);
    end.run();
    // Without its log the file can be read from a folder that cannot be written to. This fails
    // while others read.
    sqlite3_busy_timeout(file_.handle(), 0);
    sqlite3_exec(file_.handle(), "PRAGMA journal_mode = DELETE", nullptr, nullptr, nullptr);
}

// ---------------------------------------------------------------------------------- the recording

recording::recording(const std::string& path, recording_options options, std::ostream& err)
    : file_(std::make_unique<file>(path, options, err)) {}

recording::~recording() {
    try {
        file_->finish();
    } catch (const std::exception&) { // it was reported when it was met first
        return;
    }
}

void recording::show(const shown_sample& each) {
    file_->add(each);
}

void recording::miss(const missing_sample& each) {
    file_->miss(each);
}

void recording::end_report(const std::string& host, long /*number*/, bool away) {
    file_->end_report(host, away);
}

void recording::finish() {
    file_->finish();
}

std::uint64_t recording::lost() const {
    return file_->lost();
}

} // namespace tools
