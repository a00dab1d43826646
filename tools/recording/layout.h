// How a recording lies in its SQLite file; docs/recording.md shows it.
//
// A tick is one report of one host. A row of a subject has its words (labels and texts) in the
// table SUBJECT_series, once, and its figures in SUBJECT_data, whose key is made of the tick and
// the series. A row of figures stands for `ticks` ticks from its own on, in which nothing of it
// changed: at most `longest_span`, so that no reader has to look further back. The view SUBJECT has
// a row for each tick, with figures in their units.
#ifndef MONCL_TOOLS_RECORDING_LAYOUT_H
#define MONCL_TOOLS_RECORDING_LAYOUT_H

#include "sqlite.h"
#include "subject.h"

#include <string>
#include <vector>

namespace tools {

/// Raised with each change that an older program cannot read.
constexpr int recording_schema = 1;
/// Tells a recording from other SQLite files, as PRAGMA application_id: "mncl".
constexpr int recording_application = 0x6d6e636c;

constexpr int series_bits = 28; ///< of a key; the tick stands above them
constexpr std::int64_t series_max = (std::int64_t{1} << series_bits) - 1;
constexpr std::int64_t tick_max = (std::int64_t{1} << (62 - series_bits)) - 1;
constexpr std::int64_t longest_span = 16;

/// The key of the series @p series at @p tick; with series 0 the first of that tick.
constexpr std::int64_t key_of(std::int64_t tick, std::int64_t series = 0) {
    return tick * (series_max + 1) + series;
}
constexpr std::int64_t tick_of(std::int64_t key) {
    return key >> series_bits;
}
/// The ticks that a row stands for, clamped because the file may be damaged.
constexpr std::int64_t span_of(std::int64_t ticks) {
    return ticks < 0 ? 0 : ticks > longest_span ? longest_span : ticks;
}
constexpr std::int64_t series_of(std::int64_t key) {
    return key & series_max;
}

/// The fields of a subject that are recorded, as positions among its fields. Rates are not: they
/// are formed from counters when they are wanted.
struct recorded_fields {
    explicit recorded_fields(const subject& what);
    std::vector<std::size_t> words;   ///< labels and texts
    std::vector<std::size_t> figures; ///< gauges and counters
};

/// Whether numbers of @p f with a fraction are expected: those are kept as integers of millionths,
/// which take up less.
bool kept_in_millionths(const field& f);
/// Converts @p v to what the file keeps.
value to_stored(const field& f, const value& v);
/// The inverse of `to_stored`.
value from_stored(const field& f, const value& stored);

/// @p name as SQL has it, in quotes.
std::string quoted(std::string_view name);
/// The same for the table of a subject, such as "cpu_data" for @p suffix "_data".
std::string table_name(const subject& what, const char* suffix);

/// Makes the tables that belong to no subject.
void create_common_tables(database& file);
/// Makes the tables and the view of @p what, or brings those that an older program made up to date.
void create_subject_tables(database& file, const subject& what);
/// Names of the columns of @p table; none if there is no such table.
std::vector<std::string> columns_of(database& file, const std::string& table);

/// @throws std::runtime_error if @p file is no recording, or one of a newer schema
void check_schema(database& file, const std::string& path);

} // namespace tools

#endif
