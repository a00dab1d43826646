// Rates between two samples: rows pair by their names, and what cannot be known is unknown.
#include "figure_text.h"
#include "rates.h"
#include "safe_text.h"

#include <clocale>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

using namespace tools;

namespace {

const subject& traffic() {
    static const subject what{
        "traffic",
        "traffic",
        "A subject of the tests",
        {label("device", "Device", "Name"), gauge("level", unit::none, "Level").counted_in(10),
         counter("bytes", unit::bytes, "Bytes"),
         counter("busy", unit::seconds, "Time").counted_in(100),
         counter("idle", unit::seconds, "Time").counted_in(100),
         rate("bytes_per_second", unit::bytes_per_second, "Rate").per_second_of("bytes"),
         rate("busy_percent", unit::percent, "Share")
             .formed_by({{"busy"}, {}, {"busy", "idle"}, 100}),
         rate("load_percent", unit::percent, "Share").per_second_of("busy", 100)},
        nullptr};
    return what;
}

struct device {
    const char* name;
    std::optional<std::uint64_t> bytes;
    std::uint64_t busy;
    std::uint64_t idle;
    std::uint64_t incarnation = 0;
};

sample sample_at(double seconds, const std::vector<device>& devices) {
    sample made;
    made.seconds = seconds;
    for (const device& each : devices)
        made.add(each.name, std::lround(seconds * 10), each.bytes, each.busy, each.idle)
            .incarnation = each.incarnation;
    return made;
}

// The rates of each row, such as "eth0 512 25 -".
std::string rates_of(const sample& figures) {
    std::string text;
    for (const row& r : figures.rows) {
        append_plain(text, traffic().fields[0], r.values[0]);
        for (std::size_t i = 5; i < r.values.size(); ++i) {
            text += ' ';
            if (!is_known(r.values[i]))
                text += '-';
            append_plain(text, traffic().fields[i], r.values[i]);
        }
        text += '\n';
    }
    return text;
}

constexpr std::uint64_t huge = 0xFFFFFFFFFFFFFFF0;
} // namespace

TEST(rates, are_formed_between_rows_of_the_same_name) {
    const struct {
        const char* name;
        std::vector<device> before;
        std::vector<device> now;
        std::string rates; // bytes per second, share of time busy, time busy per second
        double seconds = 1;
    } cases[] = {
        {"growth over time", {{"a", 100, 0, 0}}, {{"a", 1124, 50, 150}}, "a 512 25 25\n", 2},
        {"rows that changed places, and a new one",
         {{"a", 0, 0, 0}, {"b", 1000, 0, 0}},
         {{"c", 9, 1, 1}, {"b", 1010, 10, 90}, {"a", 5, 90, 10}},
         "c - - -\nb 10 10 10\na 5 90 90\n"},
        {"a row that is gone", {{"a", 1, 0, 0}, {"b", 1, 0, 0}}, {{"b", 1, 1, 3}}, "b 0 25 1\n"},
        {"a counter that was set back", {{"a", 500, 10, 10}}, {{"a", 400, 20, 10}}, "a - 100 10\n"},
        {"a divisor that runs back by little",
         {{"a", 0, 0, 100}},
         {{"a", 0, 100, 99}},
         "a 0 101.010101 100\n"},
        {"a divisor that was set back", {{"a", 0, 10, 1000}}, {{"a", 0, 20, 10}}, "a 0 - 10\n"},
        {"another thing of the same name", {{"a", 1, 1, 1, 7}}, {{"a", 2, 2, 2, 8}}, "a - - -\n"},
        {"the end of the range", {{"a", huge, 0, 0}}, {{"a", huge + 8, 1, 0}}, "a 8 100 1\n"},
        {"less than a tick of the clock",
         {{"a", 0, 0, 0}},
         {{"a", 5, 0, 0}},
         "a 1000 - -\n",
         0.005},
        {"no time at all", {{"a", 0, 0, 0}}, {{"a", 5, 1, 1}}, "a - 50 -\n", 0},
        {"a counter that became known", {{"a", {}, 0, 0}}, {{"a", 5, 1, 1}}, "a - 50 1\n"},
    };
    for (const auto& each : cases) {
        rate_former rates(traffic());
        sample before = sample_at(0, each.before);
        sample now = sample_at(each.seconds, each.now);
        EXPECT_FALSE(rates.compare(before).has_value());
        EXPECT_DOUBLE_EQ(rates.compare(now).value_or(-1), each.seconds) << each.name;
        EXPECT_EQ(rates_of(now), each.rates) << each.name;
    }
}

TEST(rates, average_over_the_time_that_each_is_known_for) {
    rate_former rates(traffic());
    const std::vector<device> samples[] = {{{"a", 0, 0, 0}},
                                           {{"a", 100, 10, 90}},
                                           {{"a", 50, 20, 180}, {"b", 7, 0, 0}},
                                           {{"a", 350, 60, 240}, {"b", 8, 0, 0}},
                                           {{"b", 10, 1, 0}}};
    double time = 0;
    for (const auto& devices : samples) {
        sample now = sample_at(time++, devices);
        rates.compare(now);
    }
    // The second at which the bytes of "a" were set back counts for neither bytes nor time.
    EXPECT_EQ(rates_of(rates.average()), "a 200 20 20\nb 1.5 100 0.5\n");
    EXPECT_EQ(rates.averaged(), 4U);
    EXPECT_EQ(rates.average().rows[0].values[1], value(2.0)) << "a mean in the field's unit";
    EXPECT_FALSE(is_known(rates.average().rows[0].values[2]));
    rates.forget();
    sample later = sample_at(100, samples[0]);
    EXPECT_FALSE(rates.compare(later).has_value());
}

TEST(figures, are_rounded_to_six_decimals) {
    std::mt19937_64 random(5);
    for (int i = 0; i < 200000; ++i) {
        const double number = std::ldexp(static_cast<double>(random() >> 11) - 0x1p52,
                                         -static_cast<int>(random() % 100) - 2);
        std::string ours;
        append_number(ours, number);
        // Half of the last decimal, and what a double of that size cannot resolve.
        const double half = std::abs(number) < 1e9 ? 0.5e-6 : 0.5;
        EXPECT_NEAR(std::stod(ours), number, half + std::abs(number) * 0x1p-51);
        EXPECT_TRUE(ours.find('.') == ours.npos || (ours.back() != '0' && ours.back() != '.'));
    }
}

TEST(safe_text, never_steers_a_terminal) {
    const struct {
        const char* name;
        std::string text;
        std::string shown;
        std::string utf8;
        std::size_t width;
    } cases[] = {
        {"plain", "eth0", "eth0", "eth0", 4},
        {"escape sequence", "a\033[2J\n", "a\\x1b[2J\\x0a", "a\033[2J\n", 12},
        {"C1 control character", "\xC2\x9B", "\\xc2\\x9b", "\xC2\x9B", 8},
        {"umlaut", "d\xC3\xA4mon", "d\xC3\xA4mon", "d\xC3\xA4mon", 5},
        {"overlong slash", "\xC0\xAF", "\\xc0\\xaf", "\xEF\xBF\xBD\xEF\xBF\xBD", 8},
        {"surrogate", "\xED\xA0\x80", "\\xed\\xa0\\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD",
         12},
        {"cut off sequence", "x\xE2\x82", "x\\xe2\\x82", "x\xEF\xBF\xBD\xEF\xBF\xBD", 9},
        {"beyond Unicode", "\xF5\x80\x80\x80", "\\xf5\\x80\\x80\\x80",
         "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD", 16},
    };
    std::setlocale(LC_CTYPE, "C.UTF-8");
    for (const auto& each : cases) {
        EXPECT_EQ(safe_text(each.text), each.shown) << each.name;
        EXPECT_EQ(valid_utf8(each.text), each.utf8) << each.name;
        EXPECT_EQ(display_width(safe_text(each.text)), each.width) << each.name;
    }
    EXPECT_EQ(display_width("\xE6\xBC\xA2\xE5\xAD\x97"), 4U) << "wide characters";
}
