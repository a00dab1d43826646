// The figures of one subject at one time: rows of values, some of which may be unknown.
#ifndef MONCL_TOOLS_SAMPLE_H
#define MONCL_TOOLS_SAMPLE_H

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace tools {

/// One value; std::monostate is unknown.
using value = std::variant<std::monostate, std::uint64_t, std::int64_t, double, std::string>;

/// The unknown value.
inline constexpr std::monostate unknown{};

inline bool is_known(const value& v) {
    return v.index() != 0;
}

/// Converts by the shortest decimal digits: the float nearest to 40.2 becomes 40.2, not 40.200001.
inline double decimal_of(float from) {
    char digits[64];
    const char* end = std::to_chars(digits, std::end(digits), from).ptr;
    double number = 0;
    std::from_chars(digits, end, number);
    return number;
}

/// @p from as a value: text, an integer or a number. What is not finite is unknown.
template<class From>
value to_value(From&& from) {
    using type = std::decay_t<From>;
    if constexpr (std::is_same_v<type, value> || std::is_same_v<type, std::monostate>)
        return std::forward<From>(from);
    else if constexpr (std::is_convertible_v<From, std::string_view>)
        return std::string(std::string_view(from));
    else if constexpr (std::is_same_v<type, float>)
        return std::isfinite(from) ? value(decimal_of(from)) : value();
    else if constexpr (std::is_floating_point_v<type>)
        return std::isfinite(from) ? value(static_cast<double>(from)) : value();
    else if constexpr (std::is_signed_v<type>)
        return static_cast<std::int64_t>(from);
    else
        return static_cast<std::uint64_t>(from);
}

/// A number that may be unknown.
template<class Number>
value to_value(const std::optional<Number>& from) {
    return from ? to_value(*from) : value();
}

/// The figures of one thing.
struct row {
    std::vector<value> values; ///< one for each field of the subject
    /// Differs from that of an earlier thing with the same labels, such as the start time of a
    /// process.
    std::uint64_t incarnation = 0;
    /// Whether it is the sum of other rows. Metrics omit it, because whoever reads them can sum.
    bool is_total = false;
};

/// One answer at one time.
struct sample {
    std::chrono::system_clock::time_point time; ///< of receipt
    double seconds = 0; ///< of receipt, by a clock that never jumps: only differences mean anything
    std::vector<row> rows;
    std::vector<std::string> notes; ///< what a user must know of it, such as what was cut off
    /// What was asked for by name and is missing. After a refused query: the reason, which is shown
    /// in place of the subject's general text.
    std::vector<std::string> faults;
    bool ended = false; ///< no later sample can have rows

    /// Appends a row: @p each in the order of the subject's fields. The rates stand last among the
    /// fields and are not given.
    template<class... Values>
    row& add(Values&&... each) {
        rows.emplace_back();
        rows.back().values.reserve(sizeof...(each));
        (rows.back().values.push_back(to_value(std::forward<Values>(each))), ...);
        return rows.back();
    }
};

} // namespace tools

#endif
