// Writing figures.
#include "figure_text.h"

#include "common_func.h"
#include "safe_text.h"

#include <charconv>
#include <cmath>
#include <ctime>
#include <sstream>

namespace tools {

namespace {
template<class Integer>
void append_integer(std::string& to, Integer number) {
    char digits[24];
    to.append(digits, std::to_chars(digits, std::end(digits), number).ptr);
}

std::string fixed(double number, int decimals) {
    char digits[400]; // the greatest double has 309 digits before its point
    const auto end =
        std::to_chars(digits, std::end(digits), number, std::chars_format::fixed, decimals).ptr;
    return {digits, end};
}

std::string formatted(std::chrono::system_clock::time_point time, const char* format,
                      std::tm* (*convert)(const std::time_t*, std::tm*)) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    convert(&seconds, &parts);
    char text[64];
    return {text, std::strftime(text, sizeof text, format, &parts)};
}
} // namespace

std::optional<double> number_in_unit(const field& of, const value& v) {
    if (const auto* natural = std::get_if<std::uint64_t>(&v))
        return static_cast<double>(*natural) / of.per_unit;
    if (const auto* integer = std::get_if<std::int64_t>(&v))
        return static_cast<double>(*integer) / of.per_unit;
    if (const auto* number = std::get_if<double>(&v))
        return *number;
    return std::nullopt;
}

void append_number(std::string& to, double number) {
    // Integers take a fifth of the time that doubles take, and have room for nine digits before the
    // point.
    if (std::abs(number) >= 1e9) {
        to += fixed(number, 0);
        return;
    }
    constexpr long long parts = 1000000;
    long long scaled = std::llround(number * parts);
    if (scaled < 0) {
        to += '-';
        scaled = -scaled;
    }
    append_integer(to, scaled / parts);
    long long rest = scaled % parts;
    if (rest == 0)
        return;
    char digits[] = {'.', 0, 0, 0, 0, 0, 0};
    for (int i = 6; i > 0; --i, rest /= 10)
        digits[i] = static_cast<char>('0' + rest % 10);
    to.append(digits, std::string_view(digits, 7).find_last_not_of('0') + 1);
}

void append_plain(std::string& to, const field& of, const value& v) {
    if (const auto* text = std::get_if<std::string>(&v))
        to += *text;
    else if (const auto* natural = std::get_if<std::uint64_t>(&v); natural && of.per_unit == 1)
        append_integer(to, *natural);
    else if (const auto* integer = std::get_if<std::int64_t>(&v); integer && of.per_unit == 1)
        append_integer(to, *integer);
    else if (const auto number = number_in_unit(of, v))
        append_number(to, *number);
}

std::string size_text(double bytes) {
    std::ostringstream text;
    show_by_unit(static_cast<unsigned long>(std::max(bytes, 0.0)), text, 0);
    return text.str();
}

std::string cell_text(const field& of, const value& v) {
    if (const auto* text = std::get_if<std::string>(&v))
        return safe_text(*text);
    const auto number = number_in_unit(of, v);
    if (!number)
        return "-";
    switch (of.in) {
    case unit::bytes:
        return size_text(*number);
    case unit::bytes_per_second:
        return fixed(*number / 1024, 2);
    case unit::hertz:
        return fixed(*number / 1e6, 1);
    case unit::celsius:
        return fixed(*number, 1);
    case unit::seconds: // queries take microseconds
        return fixed(*number, *number < 1 ? 6 : 3);
    case unit::percent:
    case unit::per_second:
        return fixed(*number, 2);
    case unit::frames_per_second:
    case unit::none:
        break;
    }
    const bool integer = !std::holds_alternative<double>(v) && of.per_unit == 1;
    return integer ? fixed(*number, 0) : fixed(*number, 2);
}

std::string utc_text(std::chrono::system_clock::time_point time) {
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() %
        1000;
    char fraction[8];
    std::snprintf(fraction, sizeof fraction, ".%03dZ", static_cast<int>(ms));
    return formatted(time, "%Y-%m-%dT%H:%M:%S", gmtime_r) + fraction;
}

std::string local_date_text(std::chrono::system_clock::time_point time) {
    return formatted(time, "%Y-%m-%d", localtime_r);
}

std::string local_text(std::chrono::system_clock::time_point time) {
    return formatted(time, "%H:%M:%S", localtime_r);
}

} // namespace tools
