// Reading ticks and rows.
#include "recording_reader.h"

#include "layout.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <sys/stat.h>
#include <utility>

namespace tools {

namespace {
constexpr std::size_t most_kept_words = 100000; // rows of a subject

bool is_file(const std::string& path) {
    struct stat found {};
    return stat(path.c_str(), &found) == 0;
}

std::string as_uri(const std::string& path) {
    std::string uri = "file:";
    for (const char c : path) {
        if (c == '%' || c == '?' || c == '#') {
            char escaped[4];
            std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned>(c));
            uri += escaped;
        } else {
            uri += c;
        }
    }
    return uri + "?immutable=1";
}

// SQLite usually makes files beside the one it reads. A recording that has ended needs none, so it
// can be read from a folder that cannot be written to.
std::unique_ptr<database> open_file(const std::string& path) {
    try {
        auto file = std::make_unique<database>(path, SQLITE_OPEN_READONLY);
        sqlite3_busy_timeout(file->handle(), 1000);
        check_schema(*file, path);
        return file;
    } catch (const sqlite_error& e) {
        if (e.code != SQLITE_CANTOPEN || !is_file(path) || is_file(path + "-wal"))
            throw;
    }
    auto file = std::make_unique<database>(as_uri(path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
    check_schema(*file, path);
    return file;
}

std::chrono::system_clock::time_point from_milliseconds(std::int64_t ms) {
    constexpr std::int64_t greatest =
        8000000000000; // nanoseconds end soon after; a file may be damaged
    return std::chrono::system_clock::time_point(
        std::chrono::milliseconds(std::clamp<std::int64_t>(ms, 0, greatest)));
}
} // namespace

std::unique_ptr<database> open_recording(const std::string& path) {
    try {
        return open_file(path);
    } catch (const sqlite_error& e) {
        if (e.code == SQLITE_NOTADB)
            throw std::runtime_error(path + " is no recording of moncl");
        const std::string why = is_file(path) ? e.what() : std::strerror(ENOENT);
        throw std::runtime_error("cannot read " + path + ": " + why);
    }
}

std::vector<std::string> recorded_hosts(const std::string& path) {
    const auto file = open_recording(path);
    std::vector<std::string> names;
    statement ask(*file, "SELECT name FROM hosts ORDER BY id");
    while (ask.step())
        names.push_back(ask.text(0));
    return names;
}

// ----------------------------------------------------------------------------------- one subject

struct recording_reader::event {
    std::int64_t tick;
    std::string subject;
    std::string what;
    int code;
    std::string text;
};

/// What is kept of a subject's table from one report to the next.
struct recording_reader::subject_state {
    subject_state(database& in, const subject& of) : what(of), fields(of) {
        const auto expressions = [&](const char* suffix, const std::vector<std::size_t>& wanted) {
            const auto present = columns_of(in, std::string(of.name) + suffix);
            std::string sql;
            for (const std::size_t i : wanted) { // an older program may not have had all of them
                const std::string name = of.fields[i].name;
                const bool has = std::find(present.begin(), present.end(), name) != present.end();
                sql += has ? ", " + quoted(name) : ", NULL";
            }
            return sql;
        };
        rows_between = std::make_unique<statement>(
            in, "SELECT key, ticks" + expressions("_data", fields.figures) + " FROM " +
                    table_name(of, "_data") + " WHERE key >= ? AND key < ? ORDER BY key");
        words_of_series = std::make_unique<statement>(
            in, "SELECT host, incarnation, is_total" + expressions("_series", fields.words) +
                    " FROM " + table_name(of, "_series") + " WHERE id = ?");
    }

    struct span_row {
        std::int64_t series;
        std::int64_t end; // the first tick that it does not stand for
        row figures;
    };
    struct words {
        std::int64_t host = 0;
        row of;
    };

    // Keeps the rows that stand for `tick`.
    void go_to(std::int64_t tick, std::int64_t host) {
        const bool goes_on = tick >= at && tick - at <= longest_span;
        if (!goes_on)
            open.clear();
        const std::int64_t from = goes_on ? at + 1 : tick - longest_span + 1;
        open.erase(std::remove_if(open.begin(), open.end(),
                                  [tick](const span_row& each) { return each.end <= tick; }),
                   open.end());
        rows_between->bind(1, key_of(std::max<std::int64_t>(from, 0)));
        rows_between->bind(2, key_of(tick + 1));
        while (rows_between->step())
            add_row(tick, host);
        rows_between->reset();
        at = tick;
        std::sort(open.begin(), open.end(),
                  [](const span_row& a, const span_row& b) { return a.series < b.series; });
    }

    void add_row(std::int64_t tick, std::int64_t host) {
        const std::int64_t key = rows_between->integer(0);
        const std::int64_t end = tick_of(key) + span_of(rows_between->integer(1));
        if (end <= tick)
            return;
        const words& named = words_of(series_of(key));
        if (named.host != host)
            return;
        open.push_back({series_of(key), end, named.of});
        int column = 2;
        for (const std::size_t i : fields.figures)
            open.back().figures.values[i] =
                from_stored(what.fields[i], rows_between->any(column++));
    }

    const words& words_of(std::int64_t series) {
        if (const auto found = known.find(series); found != known.end())
            return found->second;
        if (known.size() > most_kept_words)
            known.clear();
        words& made = known[series];
        made.of.values.resize(fields.words.size() + fields.figures.size());
        words_of_series->bind(1, series);
        if (words_of_series->step()) {
            made.host = words_of_series->integer(0);
            made.of.incarnation = static_cast<std::uint64_t>(words_of_series->integer(1));
            made.of.is_total = words_of_series->integer(2) != 0;
            int column = 3;
            for (const std::size_t i : fields.words)
                made.of.values[i] = words_of_series->any(column++);
        }
        words_of_series->reset();
        return made;
    }

    void forget() {
        at = -1;
        open.clear();
        known.clear();
    }

    const subject& what;
    recorded_fields fields;
    std::unique_ptr<statement> rows_between;
    std::unique_ptr<statement> words_of_series;
    std::map<std::int64_t, words> known;
    std::vector<span_row> open; // by series
    std::int64_t at = -1;       // the tick that they stand for
};

// -------------------------------------------------------------------------------------- the reader

recording_reader::recording_reader(const std::string& path, const std::string& host)
    : path_(path), host_(host), file_(open_recording(path)) {
    statement ask(*file_, "SELECT id FROM hosts WHERE name = ?");
    ask.bind(1, std::string_view(host));
    if (!ask.step())
        throw std::runtime_error(path + " has nothing of a host " + host);
    host_id_ = ask.integer(0);
}

recording_reader::~recording_reader() = default;

std::vector<const subject*> recording_reader::subjects() const {
    std::vector<const subject*> all;
    for (const subject* each : all_subjects())
        if (!columns_of(*file_, std::string(each->name) + "_data").empty())
            all.push_back(each);
    return all;
}

std::optional<recorded_tick> recording_reader::find(const std::string& condition,
                                                    std::int64_t operand) const {
    std::unique_ptr<statement>& kept = finders_[condition];
    if (!kept)
        kept = std::make_unique<statement>(
            *file_, "SELECT tick, time, run, steady, away, runs.started FROM ticks JOIN runs ON "
                    "runs.id = run WHERE host = ?1 AND +tick BETWEEN 1 AND " +
                        std::to_string(tick_max) + " AND " + condition + " LIMIT 1");
    statement& ask = *kept;
    ask.bind(1, host_id_);
    ask.bind(2, operand);
    if (!ask.step()) {
        ask.reset();
        return std::nullopt;
    }
    recorded_tick found;
    found.tick = ask.integer(0);
    found.time = from_milliseconds(ask.integer(1));
    found.run = ask.integer(2);
    found.away = ask.integer(4) != 0;
    // The clock of each run starts anew, so reports of different runs are compared by the time of
    // day.
    const value started = ask.any(5);
    const auto* start = std::get_if<double>(&started);
    found.seconds = (start == nullptr ? 0 : *start) + static_cast<double>(ask.integer(3)) / 1e6;
    ask.reset(); // an open query keeps the file's log from being emptied
    return found;
}

std::optional<recorded_tick> recording_reader::first() const {
    return after(-1);
}

std::optional<recorded_tick> recording_reader::last() const {
    return find("?2 = 0 ORDER BY tick DESC", 0);
}

std::optional<recorded_tick> recording_reader::after(std::int64_t tick) const {
    return find("tick > ?2 ORDER BY tick", tick);
}

std::optional<recorded_tick> recording_reader::before(std::int64_t tick) const {
    return find("tick < ?2 ORDER BY tick DESC", tick);
}

std::optional<recorded_tick> recording_reader::from(time_point time) const {
    return find(
        "time >= ?2 ORDER BY time",
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count());
}

recording_reader::subject_state* recording_reader::state_of(const subject& what) {
    for (const auto& each : states_)
        if (&each->what == &what)
            return each.get();
    if (columns_of(*file_, std::string(what.name) + "_data").empty())
        return nullptr;
    return states_.emplace_back(std::make_unique<subject_state>(*file_, what)).get();
}

bool recording_reader::has_changed() {
    if (!version_asker_)
        version_asker_ = std::make_unique<statement>(*file_, "PRAGMA data_version");
    version_asker_->step();
    const std::int64_t now = version_asker_->integer(0);
    version_asker_->reset();
    return std::exchange(version_, now) != now;
}

void recording_reader::load_events() {
    events_.clear();
    statement ask(*file_, "SELECT tick, subject, what, code, text FROM events WHERE host = ? "
                          "ORDER BY tick, id");
    ask.bind(1, host_id_);
    while (ask.step())
        events_.push_back({ask.integer(0), ask.text(1), ask.text(2),
                           static_cast<int>(ask.integer(3)), ask.text(4)});
}

// A subject without rows was refused if the latest event about it is a refusal.
void recording_reader::add_events(const recorded_tick& at, std::int64_t notes_since,
                                  answer& to) const {
    const event* refused = nullptr;
    for (const event& each : events_) {
        if (each.tick > at.tick)
            break;
        if (each.subject != to.what->name)
            continue;
        if (each.what == "refused" || each.what == "answered")
            refused = each.what == "refused" ? &each : nullptr;
        else if (each.tick > notes_since)
            (each.what == "note" ? to.figures.notes : to.figures.faults).push_back(each.text);
    }
    if (refused != nullptr && to.figures.rows.empty()) {
        to.code = refused->code;
        to.figures.faults = {refused->text};
    }
}

report recording_reader::read(const recorded_tick& at, const std::vector<const subject*>& subjects,
                              std::int64_t notes_since) {
    if (has_changed()) {
        for (auto& each : states_)
            each->forget();
        load_events();
    }
    report made;
    made.away = at.away;
    for (const subject* what : subjects) {
        answer got;
        got.what = what;
        got.figures.time = at.time;
        got.figures.seconds = at.seconds;
        if (subject_state* state = state_of(*what)) {
            state->go_to(at.tick, host_id_);
            for (const auto& each : state->open)
                got.figures.rows.push_back(each.figures);
        } else {
            got.code = -ENODATA;
            got.figures.faults = {path_ + " has no figures of " + what->name};
        }
        add_events(at, notes_since, got);
        // With rows, the server had answered this query before it went away.
        if (at.away && got.figures.rows.empty()) {
            got.code = -ETIMEDOUT;
            got.is_servers_own = false;
        }
        made.answers.push_back(std::move(got));
    }
    return made;
}

} // namespace tools
