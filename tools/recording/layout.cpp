// Making and checking the tables of a recording.
#include "layout.h"

#include <algorithm>
#include <cmath>

namespace tools {

namespace {
constexpr double millionth = 1e-6;
// A greater number would not fit into an integer of millionths.
constexpr double millionths_max = 9e12;

const char* unit_text(unit in) {
    constexpr const char* names[] = {"",          "bytes", "bytes per second", "percent",
                                     "celsius",   "hertz", "seconds",          "frames per second",
                                     "per second"};
    return names[static_cast<std::size_t>(in)];
}

const char* kind_text(kind what) {
    constexpr const char* names[] = {"label", "text", "gauge", "counter", "rate"};
    return names[static_cast<std::size_t>(what)];
}

bool contains(const std::vector<std::string>& names, const char* wanted) {
    return std::find(names.begin(), names.end(), wanted) != names.end();
}

// A figure in its unit, as an expression over the row `d`.
std::string figure_expression(const field& f) {
    const std::string column = "d." + quoted(f.name);
    if (kept_in_millionths(f))
        return "CASE typeof(" + column + ") WHEN 'integer' THEN " + column + " / 1e6 ELSE " +
               column + " END";
    return f.per_unit == 1 ? column : column + " / " + std::to_string(f.per_unit) + ".0";
}

// By the two bounds of `d.key` SQLite can start from the ticks, by those of `t.tick` from the rows.
std::string view_of(const subject& what, const recorded_fields& fields) {
    const std::string bits = std::to_string(series_bits);
    std::string sql = "DROP VIEW IF EXISTS " + table_name(what, "") + ";CREATE VIEW " +
                      table_name(what, "") +
                      " AS SELECT t.time AS time,"
                      " strftime('%Y-%m-%dT%H:%M:%fZ', t.time / 1000.0, 'unixepoch') AS utc,"
                      " h.name AS host";
    for (const std::size_t i : fields.words)
        sql += ", s." + quoted(what.fields[i].name);
    for (const std::size_t i : fields.figures)
        sql += ", " + figure_expression(what.fields[i]) + " AS " + quoted(what.fields[i].name);
    return sql + " FROM ticks t JOIN " + table_name(what, "_data") + " d ON d.key >= (t.tick - " +
           std::to_string(longest_span - 1) + ") << " + bits + " AND d.key < (t.tick + 1) << " +
           bits + " AND t.tick >= d.key >> " + bits + " AND t.tick < (d.key >> " + bits +
           ") + d.ticks JOIN " + table_name(what, "_series") + " s ON s.id = d.key & " +
           std::to_string(series_max) + " AND s.host = t.host JOIN hosts h ON h.id = t.host;";
}

void add_missing_columns(database& file, const subject& what, const char* suffix,
                         const std::vector<std::size_t>& fields) {
    const auto present = columns_of(file, std::string(what.name) + suffix);
    for (const std::size_t i : fields)
        if (!contains(present, what.fields[i].name))
            file.run("ALTER TABLE " + table_name(what, suffix) + " ADD COLUMN " +
                     quoted(what.fields[i].name));
}

void describe_fields(database& file, const subject& what) {
    statement describe(file, "INSERT OR REPLACE INTO fields VALUES (?, ?, ?, ?, ?, ?)");
    for (const field& f : what.fields) {
        describe.bind(1, std::string_view(what.name));
        describe.bind(2, std::string_view(f.name));
        describe.bind(3, std::string_view(kind_text(f.what)));
        describe.bind(4, std::string_view(unit_text(f.in)));
        describe.bind(5, std::int64_t{kept_in_millionths(f) ? 1000000 : f.per_unit});
        describe.bind(6, std::string_view(f.help));
        describe.run();
    }
}
} // namespace

recorded_fields::recorded_fields(const subject& what) {
    for (std::size_t i = 0; i < what.fields.size(); ++i) {
        const kind of = what.fields[i].what;
        if (of == kind::label || of == kind::text)
            words.push_back(i);
        else if (of != kind::rate)
            figures.push_back(i);
    }
}

bool kept_in_millionths(const field& f) {
    const bool fraction = f.in == unit::percent || f.in == unit::seconds ||
                          f.in == unit::per_second || f.in == unit::bytes_per_second ||
                          f.in == unit::celsius;
    return fraction && f.per_unit == 1 && (f.what == kind::gauge || f.what == kind::counter);
}

value to_stored(const field& f, const value& v) {
    if (!kept_in_millionths(f) || std::holds_alternative<std::string>(v) || !is_known(v))
        return v;
    double number = 0;
    if (const auto* natural = std::get_if<std::uint64_t>(&v))
        number = static_cast<double>(*natural);
    else if (const auto* integer = std::get_if<std::int64_t>(&v))
        number = static_cast<double>(*integer);
    else
        number = std::get<double>(v);
    if (std::abs(number) > millionths_max)
        return number;
    return static_cast<std::int64_t>(std::llround(number / millionth));
}

value from_stored(const field& f, const value& stored) {
    if (!kept_in_millionths(f))
        return stored;
    if (const auto* natural = std::get_if<std::uint64_t>(&stored))
        return static_cast<double>(*natural) / 1e6;
    if (const auto* integer = std::get_if<std::int64_t>(&stored))
        return static_cast<double>(*integer) / 1e6;
    return stored;
}

std::string quoted(std::string_view name) {
    return '"' + std::string(name) + '"'; // names are our own literals, without quotes
}

std::string table_name(const subject& what, const char* suffix) {
    return quoted(std::string(what.name) + suffix);
}

void create_common_tables(database& file) {
    file.run("PRAGMA application_id = " + std::to_string(recording_application) +
             ";PRAGMA user_version = " + std::to_string(recording_schema) +
             ";"
             R"(
CREATE TABLE IF NOT EXISTS hosts (id INTEGER PRIMARY KEY, name TEXT UNIQUE);
CREATE TABLE IF NOT EXISTS runs (
    id INTEGER PRIMARY KEY,
    started REAL, -- seconds since 1970
    ended REAL);  -- NULL: it runs, or was killed
CREATE TABLE IF NOT EXISTS ticks (
    tick INTEGER, host INTEGER,
    time INTEGER,   -- milliseconds since 1970
    run INTEGER,
    steady INTEGER, -- microseconds since the run started, by a clock that is never set
    away INTEGER,   -- 1: the server did not answer
    PRIMARY KEY (tick, host)) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS ticks_by_time ON ticks (time);
CREATE TABLE IF NOT EXISTS events (
    id INTEGER PRIMARY KEY,
    tick INTEGER, host INTEGER, subject TEXT,
    what TEXT, -- note, fault, refused (by the server, with its code) or answered (again)
    code INTEGER, text TEXT);
CREATE TABLE IF NOT EXISTS fields (
    subject TEXT, field TEXT, kind TEXT, unit TEXT,
    parts INTEGER, -- what integers of SUBJECT_data are counted in: 1/parts of the unit
    help TEXT,
    PRIMARY KEY (subject, field)) WITHOUT ROWID;)");
}

void create_subject_tables(database& file, const subject& what) {
    const recorded_fields fields(what);
    std::string data = "CREATE TABLE IF NOT EXISTS " + table_name(what, "_data") +
                       " (key INTEGER PRIMARY KEY, ticks";
    for (const std::size_t i : fields.figures)
        data += ", " + quoted(what.fields[i].name);
    std::string series = "CREATE TABLE IF NOT EXISTS " + table_name(what, "_series") +
                         " (id INTEGER PRIMARY KEY, host, last, incarnation, is_total";
    for (const std::size_t i : fields.words)
        series += ", " + quoted(what.fields[i].name);
    file.run(data + ");" + series + ");");
    add_missing_columns(file, what, "_data", fields.figures);
    add_missing_columns(file, what, "_series", fields.words);
    file.run(view_of(what, fields));
    describe_fields(file, what);
}

std::vector<std::string> columns_of(database& file, const std::string& table) {
    std::vector<std::string> names;
    statement ask(file, "SELECT name FROM pragma_table_info(?)");
    ask.bind(1, std::string_view(table));
    while (ask.step())
        names.push_back(ask.text(0));
    return names;
}

void check_schema(database& file, const std::string& path) {
    if (file.integer("PRAGMA application_id") != recording_application)
        throw std::runtime_error(path + " is no recording of moncl");
    const std::int64_t schema = file.integer("PRAGMA user_version");
    if (schema > recording_schema)
        throw std::runtime_error(path + " was written by a newer moncl: its schema is " +
                                 std::to_string(schema) + ", this one reads up to " +
                                 std::to_string(recording_schema));
}

} // namespace tools
