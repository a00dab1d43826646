// Gathering rows and writing them.
#include "subject_tables.h"

#include <algorithm>

namespace tools {

namespace {
constexpr std::int64_t forget_after = 256; // ticks that a series was not seen for

void append_key(std::string& to, const value& v) {
    to += static_cast<char>('0' + v.index());
    if (const auto* text = std::get_if<std::string>(&v))
        to += *text;
    else if (const auto* natural = std::get_if<std::uint64_t>(&v))
        to += std::to_string(*natural);
    else if (const auto* integer = std::get_if<std::int64_t>(&v))
        to += std::to_string(*integer);
    else if (const auto* number = std::get_if<double>(&v))
        to += std::to_string(*number);
    to += '\0';
}

std::string marks(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += ", ?";
    return text;
}
} // namespace

subject_tables::subject_tables(database& file, const subject& what, std::int64_t latest_tick)
    : what_(what), fields_(what) {
    create_subject_tables(file, what);
    prepare(file);
    next_id_ = file.integer("SELECT max(id) FROM " + table_name(what, "_series")) + 1;
    load_series(file, latest_tick);
}

bool subject_tables::add(std::int64_t host, std::int64_t tick, std::int64_t tick_before,
                         const sample& figures) {
    bool all = true;
    for (const row& r : figures.rows) {
        series* of = series_of_row(host, tick, r);
        all = all && of != nullptr;
        if (of == nullptr || of->seen == tick) // of rows with the same words only the first is kept
            continue;
        add_row(*of, tick, tick_before, r);
    }
    return all;
}

void subject_tables::hand_over() {
    for (auto& [words, each] : series_)
        hand_over(each);
}

void subject_tables::write() {
    for (const series_row& each : new_series_) {
        insert_series_->bind(1, each.id);
        insert_series_->bind(2, each.host);
        insert_series_->bind(3, static_cast<std::int64_t>(each.incarnation));
        insert_series_->bind(4, std::int64_t{each.is_total});
        for (std::size_t i = 0; i < each.words.size(); ++i)
            insert_series_->bind(static_cast<int>(i) + 5, each.words[i]);
        insert_series_->run();
    }
    // Inserted in the order of keys, rows fill pages to their ends.
    std::stable_sort(rows_.begin(), rows_.end(),
                     [](const data_row& a, const data_row& b) { return a.key < b.key; });
    for (const data_row& each : rows_) {
        insert_data_->bind(1, each.key);
        insert_data_->bind(2, each.span);
        for (std::size_t i = 0; i < each.figures.size(); ++i)
            insert_data_->bind(static_cast<int>(i) + 3, each.figures[i]);
        insert_data_->run();
    }
    for (const auto& [id, tick] : gone_) {
        end_series_->bind(1, id);
        end_series_->bind(2, tick);
        end_series_->run();
    }
}

void subject_tables::written(std::int64_t tick) {
    rows_.clear();
    new_series_.clear();
    gone_.clear();
    for (auto each = series_.begin(); each != series_.end();) {
        if (each->second.seen + forget_after < tick) {
            gone_.emplace_back(each->second.id, each->second.seen);
            each = series_.erase(each);
        } else {
            ++each;
        }
    }
}

void subject_tables::delete_before(database& file, std::int64_t tick) {
    file.run("DELETE FROM " + table_name(what_, "_data") + " WHERE key < " +
             std::to_string(key_of(std::max<std::int64_t>(tick - longest_span, 0))) +
             ";DELETE FROM " + table_name(what_, "_series") + " WHERE last < " +
             std::to_string(tick));
}

void subject_tables::prepare(database& file) {
    std::string data = "INSERT INTO " + table_name(what_, "_data") + " (key, ticks";
    std::string words =
        "INSERT INTO " + table_name(what_, "_series") + " (id, host, incarnation, is_total";
    for (const std::size_t i : fields_.figures)
        data += ", " + quoted(what_.fields[i].name);
    for (const std::size_t i : fields_.words)
        words += ", " + quoted(what_.fields[i].name);
    data += ") VALUES (?, ?" + marks(fields_.figures.size()) +
            ") ON CONFLICT (key) DO UPDATE SET ticks = excluded.ticks";
    words += ") VALUES (?, ?, ?, ?" + marks(fields_.words.size()) + ")";
    insert_data_ = std::make_unique<statement>(file, data);
    insert_series_ = std::make_unique<statement>(file, words);
    end_series_ = std::make_unique<statement>(file, "UPDATE " + table_name(what_, "_series") +
                                                        " SET last = ?2 WHERE id = ?1");
}

// Loads the series that were in use when the latest run ended.
void subject_tables::load_series(database& file, std::int64_t latest_tick) {
    std::string sql = "SELECT id, host, incarnation, is_total";
    for (const std::size_t i : fields_.words)
        sql += ", " + quoted(what_.fields[i].name);
    statement ask(file, sql + " FROM " + table_name(what_, "_series") + " WHERE last IS NULL");
    while (ask.step()) {
        row r;
        r.values.resize(what_.fields.size());
        r.incarnation = static_cast<std::uint64_t>(ask.integer(2));
        r.is_total = ask.integer(3) != 0;
        int column = 4;
        for (const std::size_t i : fields_.words)
            r.values[i] = ask.any(column++);
        series known;
        known.id = ask.integer(0);
        known.seen = latest_tick;
        series_[key_of_row(ask.integer(1), r)] = known;
    }
}

const std::string& subject_tables::key_of_row(std::int64_t host, const row& r) {
    key_ = std::to_string(host);
    key_ += r.is_total ? '+' : '.';
    key_ += std::to_string(r.incarnation);
    key_ += '\0';
    for (const std::size_t i : fields_.words)
        append_key(key_, r.values[i]);
    return key_;
}

subject_tables::series* subject_tables::series_of_row(std::int64_t host, std::int64_t tick,
                                                      const row& r) {
    const std::string& key = key_of_row(host, r);
    if (const auto found = series_.find(key); found != series_.end())
        return &found->second;
    if (next_id_ > series_max)
        return nullptr;
    series& made = series_[key];
    made.id = next_id_++;
    made.seen = tick - 1;
    series_row words{made.id, host, r.incarnation, r.is_total, {}};
    for (const std::size_t i : fields_.words)
        words.words.push_back(r.values[i]);
    new_series_.push_back(std::move(words));
    return &made;
}

void subject_tables::add_row(series& of, std::int64_t tick, std::int64_t tick_before,
                             const row& r) {
    const bool follows = of.span > 0 && of.seen == tick_before;
    of.seen = tick;
    figures_.clear();
    for (const std::size_t i : fields_.figures)
        figures_.push_back(to_stored(what_.fields[i], r.values[i]));
    if (follows && tick - of.first < longest_span && figures_ == of.figures) {
        of.span = tick - of.first + 1;
    } else {
        hand_over(of);
        of.first = tick;
        of.span = 1;
        of.figures = figures_;
    }
    of.changed = true;
}

void subject_tables::hand_over(series& of) {
    if (std::exchange(of.changed, false))
        rows_.push_back({key_of(of.first, of.id), of.span, of.figures});
}

} // namespace tools
