// The tables that the samples of one subject are written to, and what of them is still in memory.
#ifndef MONCL_TOOLS_SUBJECT_TABLES_H
#define MONCL_TOOLS_SUBJECT_TABLES_H

#include "layout.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tools {

/// The tables of one subject. Rows are gathered in memory until they are written with the next
/// block; SQLite's errors are thrown as sqlite_error.
class subject_tables {
public:
    /// Makes the tables if they are not there.
    /// @param file        outlives this, as does @p what
    /// @param latest_tick in the file; 0 if there is none
    subject_tables(database& file, const subject& what, std::int64_t latest_tick);
    /// Takes the rows of one sample.
    /// @param host        its number in the file
    /// @param tick_before that of the host's report before: what did not change since is not
    ///                    repeated
    /// @return whether there was room for all of them
    bool add(std::int64_t host, std::int64_t tick, std::int64_t tick_before, const sample& figures);
    /// Hands over what is open, to be written with the rest.
    void hand_over();
    /// Writes what was handed over, inside of a transaction.
    void write();
    /// Says that the transaction has been committed, and that @p tick was its latest.
    void written(std::int64_t tick);
    /// Gives up what was handed over and could not be written.
    void drop_rows() { rows_.clear(); }
    /// Deletes the rows of earlier ticks, and names that only they had.
    void delete_before(database& file, std::int64_t tick);

private:
    /// One thing of a subject: its words, and the row of figures that stands for it now.
    struct series {
        std::int64_t id = 0;
        std::int64_t seen = 0;  // tick
        std::int64_t first = 0; // tick of the row that is open
        std::int64_t span = 0;  // ticks that it stands for; 0: none is open
        bool changed = false;   // since the row was handed over for writing
        std::vector<value> figures;
    };

    /// A row of figures on its way to the file.
    struct data_row {
        std::int64_t key;
        std::int64_t span;
        std::vector<value> figures;
    };

    struct series_row {
        std::int64_t id;
        std::int64_t host;
        std::uint64_t incarnation;
        bool is_total;
        std::vector<value> words;
    };

    void prepare(database& file);
    void load_series(database& file, std::int64_t latest_tick);
    const std::string& key_of_row(std::int64_t host, const row& r);
    series* series_of_row(std::int64_t host, std::int64_t tick, const row& r);
    void add_row(series& of, std::int64_t tick, std::int64_t tick_before, const row& r);
    void hand_over(series& of);

    const subject& what_;
    recorded_fields fields_;
    std::unordered_map<std::string, series> series_; // by words
    std::int64_t next_id_ = 1;
    std::vector<data_row> rows_;
    std::vector<series_row> new_series_;
    std::vector<std::pair<std::int64_t, std::int64_t>> gone_; // ids, and when they were seen last
    std::unique_ptr<statement> insert_data_;
    std::unique_ptr<statement> insert_series_;
    std::unique_ptr<statement> end_series_;
    std::string key_;            // of the row in hand
    std::vector<value> figures_; // of the row in hand
};

} // namespace tools

#endif
