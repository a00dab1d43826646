// Calling SQLite.
#include "sqlite.h"

#include <limits>

namespace tools {

database::database(const std::string& path, int flags) {
    const int code = sqlite3_open_v2(path.c_str(), &handle_, flags, nullptr);
    if (code == SQLITE_OK)
        return;
    const sqlite_error refused(code, sqlite3_errstr(code));
    sqlite3_close(handle_);
    throw refused;
}

database::~database() {
    sqlite3_close(handle_);
}

void database::run(const std::string& sql) {
    if (sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        throw error();
}

std::int64_t database::integer(const std::string& sql) {
    statement ask(*this, sql);
    return ask.step() ? ask.integer(0) : 0;
}

sqlite_error database::error() const {
    return {sqlite3_extended_errcode(handle_), sqlite3_errmsg(handle_)};
}

statement::statement(database& in, const std::string& sql) : in_(in) {
    if (sqlite3_prepare_v2(in.handle(), sql.c_str(), static_cast<int>(sql.size()) + 1, &handle_,
                           nullptr) != SQLITE_OK)
        throw in.error();
}

statement::~statement() {
    sqlite3_finalize(handle_);
}

void statement::bind(int parameter, std::int64_t number) {
    sqlite3_bind_int64(handle_, parameter, number);
}

void statement::bind(int parameter, std::string_view text) {
    sqlite3_bind_text64(handle_, parameter, text.data(), text.size(), SQLITE_TRANSIENT,
                        SQLITE_UTF8);
}

void statement::bind(int parameter, const value& v) {
    constexpr std::uint64_t greatest = std::numeric_limits<std::int64_t>::max();
    if (const auto* natural = std::get_if<std::uint64_t>(&v); natural && *natural <= greatest)
        bind(parameter, static_cast<std::int64_t>(*natural));
    else if (natural)
        sqlite3_bind_double(handle_, parameter, static_cast<double>(*natural));
    else if (const auto* integer = std::get_if<std::int64_t>(&v))
        bind(parameter, *integer);
    else if (const auto* number = std::get_if<double>(&v))
        sqlite3_bind_double(handle_, parameter, *number);
    else if (const auto* text = std::get_if<std::string>(&v))
        bind(parameter, std::string_view(*text));
    else
        sqlite3_bind_null(handle_, parameter);
}

bool statement::step() {
    const int code = sqlite3_step(handle_);
    if (code == SQLITE_ROW)
        return true;
    if (code == SQLITE_DONE)
        return false;
    const sqlite_error refused = in_.error();
    reset();
    throw refused;
}

void statement::reset() {
    sqlite3_reset(handle_);
}

void statement::run() {
    while (step()) {
    }
    reset();
}

std::int64_t statement::integer(int column) const {
    return sqlite3_column_int64(handle_, column);
}

std::string statement::text(int column) const {
    const auto* start = reinterpret_cast<const char*>(sqlite3_column_text(handle_, column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(handle_, column));
    return start == nullptr ? std::string() : std::string(start, size);
}

value statement::any(int column) const {
    switch (sqlite3_column_type(handle_, column)) {
    case SQLITE_INTEGER:
        if (const std::int64_t number = integer(column); number < 0)
            return number;
        return static_cast<std::uint64_t>(integer(column));
    case SQLITE_FLOAT:
        return to_value(sqlite3_column_double(handle_, column));
    case SQLITE_TEXT:
        return text(column);
    default:
        return unknown;
    }
}

} // namespace tools
