// Reading times.
#include "time_text.h"

#include <charconv>
#include <cmath>
#include <ctime>
#include <string_view>

namespace tools {

namespace {
using clock = std::chrono::system_clock;
using seconds = std::chrono::duration<double>;

/// Takes pieces off the front of a text.
struct scanner {
    std::string_view rest;

    bool skip(char wanted) {
        if (rest.empty() || rest.front() != wanted)
            return false;
        rest.remove_prefix(1);
        return true;
    }
    /// A number of exactly @p digits digits, from @p least to @p most.
    bool number(int digits, int least, int most, int& into) {
        const auto size = static_cast<std::size_t>(digits);
        if (rest.size() < size || rest.substr(0, size).find_first_not_of("0123456789") != rest.npos)
            return false;
        std::from_chars(rest.data(), rest.data() + size, into);
        rest.remove_prefix(size);
        return into >= least && into <= most;
    }
};

// HH:MM[:SS[.fraction]] as seconds since midnight.
std::optional<double> read_time_of_day(scanner& from) {
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (!from.number(2, 0, 23, hour) || !from.skip(':') || !from.number(2, 0, 59, minute))
        return std::nullopt;
    double fraction = 0;
    if (from.skip(':')) {
        if (!from.number(2, 0, 59, second))
            return std::nullopt;
        if (from.skip('.')) {
            int digit = 0;
            double part = 0.1;
            const std::size_t size = from.rest.size();
            for (; from.number(1, 0, 9, digit); part /= 10)
                fraction += digit * part;
            if (from.rest.size() == size)
                return std::nullopt;
        }
    }
    return hour * 3600 + minute * 60 + second + fraction;
}

// Nothing for this machine's time zone.
bool read_zone(scanner& from, std::optional<int>& offset_seconds) {
    if (from.rest.empty())
        return true;
    if (from.skip('Z')) {
        offset_seconds = 0;
        return from.rest.empty();
    }
    const int sign = from.skip('-') ? -1 : 1;
    int hours = 0;
    int minutes = 0;
    if (sign == 1 && !from.skip('+'))
        return false;
    if (!from.number(2, 0, 23, hours))
        return false;
    from.skip(':');
    if (!from.rest.empty() && !from.number(2, 0, 59, minutes))
        return false;
    offset_seconds = sign * (hours * 3600 + minutes * 60);
    return from.rest.empty();
}

std::optional<given_time> read_date(scanner from) {
    std::tm parts{};
    if (!from.number(4, 1970, 2200, parts.tm_year) || !from.skip('-') ||
        !from.number(2, 1, 12, parts.tm_mon) || !from.skip('-') ||
        !from.number(2, 1, 31, parts.tm_mday))
        return std::nullopt;
    std::optional<double> of_day = 0.0;
    if (!from.rest.empty()) {
        if (!from.skip('T') && !from.skip(' '))
            return std::nullopt;
        of_day = read_time_of_day(from);
    }
    std::optional<int> zone;
    if (!of_day || !read_zone(from, zone))
        return std::nullopt;
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    const int day = parts.tm_mday;
    const double whole = std::floor(*of_day);
    parts.tm_hour = static_cast<int>(whole) / 3600; // a day of local time may not have 24 hours
    parts.tm_min = static_cast<int>(whole) / 60 % 60;
    parts.tm_sec = static_cast<int>(whole) % 60;
    parts.tm_isdst = -1;
    const std::time_t time = zone ? timegm(&parts) - *zone : std::mktime(&parts);
    if (parts.tm_mday != day) // such as 31 February
        return std::nullopt;
    given_time given;
    given.time = clock::from_time_t(time) +
                 std::chrono::duration_cast<clock::duration>(seconds(*of_day - whole));
    return given;
}

// The time of day of the day that `day` is in, `days` later.
clock::time_point on_day(clock::time_point day, int days, double of_day) {
    const std::time_t time = clock::to_time_t(day);
    std::tm parts{};
    localtime_r(&time, &parts);
    parts.tm_mday += days;
    parts.tm_hour = static_cast<int>(of_day) / 3600;
    parts.tm_min = static_cast<int>(of_day) / 60 % 60;
    parts.tm_sec = static_cast<int>(of_day) % 60;
    parts.tm_isdst = -1;
    return clock::from_time_t(std::mktime(&parts)) +
           std::chrono::duration_cast<clock::duration>(seconds(of_day - std::floor(of_day)));
}

template<class Number>
bool read_number(const std::string& text, Number& number, std::string_view& unit) {
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    unit = std::string_view(read.ptr, static_cast<std::size_t>(end - read.ptr));
    return read.ec == std::errc() && unit.size() <= 1;
}
} // namespace

std::optional<given_time> read_time(const std::string& text) {
    given_time given;
    if (!text.empty() && text.front() == '-') {
        const auto before = read_duration(text.substr(1));
        if (!before)
            return std::nullopt;
        given.what = given_time::form::ago;
        given.duration = seconds(*before);
        return given;
    }
    scanner from{text};
    if (const auto of_day = read_time_of_day(from); of_day && from.rest.empty()) {
        given.what = given_time::form::of_day;
        given.duration = seconds(*of_day);
        return given;
    }
    return read_date({text});
}

clock::time_point given_time::resolve(clock::time_point end,
                                      std::optional<clock::time_point> not_before) const {
    if (what == form::absolute)
        return time;
    if (what == form::ago)
        return end - std::chrono::duration_cast<clock::duration>(duration);
    const clock::time_point anchor = not_before.value_or(end);
    const clock::time_point same_day = on_day(anchor, 0, duration.count());
    if (not_before)
        return same_day < anchor ? on_day(anchor, 1, duration.count()) : same_day;
    return same_day > anchor ? on_day(anchor, -1, duration.count()) : same_day;
}

std::optional<double> read_duration(const std::string& text) {
    double number = 0;
    std::string_view unit;
    constexpr std::string_view units = "smhdw";
    constexpr double factors[] = {1, 60, 3600, 86400, 604800};
    if (!read_number(text, number, unit) || !(number > 0 && number < 1e9))
        return std::nullopt;
    if (unit.empty())
        return number;
    const std::size_t at = units.find(unit);
    return at == units.npos ? std::nullopt : std::optional(number * factors[at]);
}

std::optional<std::uint64_t> read_size(const std::string& text) {
    std::uint64_t number = 0;
    std::string_view unit;
    constexpr std::string_view units = "kMGT";
    if (!read_number(text, number, unit) || number == 0)
        return std::nullopt;
    const std::size_t at = unit.empty() ? 0 : units.find(unit) + 1;
    if (!unit.empty() && at == 0)
        return std::nullopt;
    constexpr unsigned bits_max = 60;
    const auto shift = static_cast<unsigned>(10 * at);
    if (number > (std::uint64_t{1} << bits_max) >> shift)
        return std::nullopt;
    return number << shift;
}

} // namespace tools
