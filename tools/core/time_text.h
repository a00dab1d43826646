// Times, durations and sizes as a user gives them.
#ifndef MONCL_TOOLS_TIME_TEXT_H
#define MONCL_TOOLS_TIME_TEXT_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tools {

/// A point in time as it was typed. Two of its forms mean a date only within a recording.
struct given_time {
    enum class form {
        absolute, ///< 2026-11-21T03:00[:00[.5]][Z|+01:00], or without its time of day
        of_day,   ///< 03:00[:00]: of this machine's time zone
        ago       ///< -2h
    };
    form what = form::absolute;
    std::chrono::system_clock::time_point time; ///< if absolute
    std::chrono::duration<double> duration{};   ///< since midnight, or before the end

    /// The time in a recording that ends at @p end: a time of day is the last such one that is not
    /// after the end; with @p not_before the first such one from there on.
    std::chrono::system_clock::time_point
    resolve(std::chrono::system_clock::time_point end,
            std::optional<std::chrono::system_clock::time_point> not_before = {}) const;
};

/// Reads a time. @return nothing if @p text is none
std::optional<given_time> read_time(const std::string& text);

/// Reads seconds with an optional unit: 90, 90s, 15m, 2h, 7d or 2w.
/// @return nothing if @p text is none, or not positive
std::optional<double> read_duration(const std::string& text);

/// Reads bytes with an optional unit of 1024: 4096, 64k, 200M or 2G.
/// @return nothing if @p text is none, or 0, or more than 2^60
std::optional<std::uint64_t> read_size(const std::string& text);

} // namespace tools

#endif
