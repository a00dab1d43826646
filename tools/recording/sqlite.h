// SQLite with errors as exceptions, and nothing to close by hand.
//
//     database file("night.db", SQLITE_OPEN_READONLY);
//     statement ask(file, "SELECT time FROM ticks WHERE tick > ?");
//     ask.bind(1, 1000);
//     while (ask.step())
//         use(ask.integer(0));
#ifndef MONCL_TOOLS_SQLITE_H
#define MONCL_TOOLS_SQLITE_H

#include "sample.h"

#include <cstdint>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tools {

/// What SQLite refused.
class sqlite_error : public std::runtime_error {
public:
    sqlite_error(int extended_code, const std::string& text)
        : std::runtime_error(text), code(extended_code & 0xff) {}
    const int code; ///< such as SQLITE_FULL
};

/// A connection to a database file. Belongs to one thread at a time.
class database {
public:
    /// Opens @p path with SQLITE_OPEN_... @p flags.
    /// @throws sqlite_error
    database(const std::string& path, int flags);
    ~database();
    database(const database&) = delete;
    database& operator=(const database&) = delete;

    /// Runs statements that give nothing. @throws sqlite_error
    void run(const std::string& sql);
    /// The first value that @p sql gives; 0 if it gives none. @throws sqlite_error
    std::int64_t integer(const std::string& sql);
    /// The error that SQLite met last.
    sqlite_error error() const;

    sqlite3* handle() const { return handle_; }

private:
    sqlite3* handle_ = nullptr;
};

/// A statement that may be run many times. Its parameters count from 1, its columns from 0.
class statement {
public:
    /// @param in outlives this
    /// @throws sqlite_error
    statement(database& in, const std::string& sql);
    ~statement();
    statement(const statement&) = delete;
    statement& operator=(const statement&) = delete;

    /// @param v a number above the greatest that SQLite's integers hold is kept as a REAL
    void bind(int parameter, const value& v);
    void bind(int parameter, std::int64_t number);
    void bind(int parameter, std::string_view text);

    /// Goes to the next row. @return whether there is one. @throws sqlite_error
    bool step();
    /// Makes it ready to be run again; parameters keep their values.
    void reset();
    /// Runs it to its end and makes it ready to be run again. @throws sqlite_error
    void run();

    std::int64_t integer(int column) const;
    std::string text(int column) const;
    /// Numbers from 0 on are unsigned; NULL is unknown.
    value any(int column) const;

private:
    database& in_;
    sqlite3_stmt* handle_ = nullptr;
};

} // namespace tools

#endif
