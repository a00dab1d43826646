// Memory figures: against a plain stream implementation on random texts, in broken texts, in the
// report.
#include "log_capture.h"
#include "manager_support.h"
#include "peri_stat_manager.h"

#include <array>

namespace {
using figures = std::array<std::uint64_t, 8>;

figures figures_of(const meminfo& mem) {
    return {mem.memTotal, mem.memfree, mem.memAvailable, mem.buffer,
            mem.cached,   mem.slab,    mem.file,         mem.anon};
}

void plain_parse(const std::string& text, std::unordered_map<std::string, long>& table) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string key, value;
        std::getline(fields, key, ':');
        fields >> std::ws;
        std::getline(fields, value);
        table[key] = std::stol(value);
    }
}

figures plain_figures(const std::string& text) {
    std::unordered_map<std::string, long> table;
    plain_parse(text, table);
    auto at = [&table](const char* key) { return static_cast<std::uint64_t>(table[key]); };
    return {at("MemTotal"),
            at("MemFree"),
            at("MemAvailable"),
            at("Buffers"),
            at("Cached"),
            at("Slab"),
            at("Active(file)") + at("Inactive(file)"),
            at("Active(anon)") + at("Inactive(anon)")};
}

// Lines that mostly hold a figure, so that whole texts come out well often enough.
std::string random_text(std::mt19937& random) {
    static const auto keys =
        split("MemTotal|MemFree|MemAvailable|Buffers|Cached|Slab|Cached |slab|"
              "Active(anon)|Inactive(anon)|Active(file)|Inactive(file)|| Slab");
    static const auto values =
        split("1| 3951104 kB|\t\v 12|-7|+9 kB|9223372036854775807|0x12|08|1.5");
    static const auto broken = split("| |kB|- 1|--1|9223372036854775808|-9223372036854775809 kB|" +
                                     std::string(1, '\0') + "1");
    std::string text;
    for (auto lines = random() % 12; lines > 0; --lines) {
        const bool good = random() % 16 != 0;
        const auto& from = good ? values : broken;
        text += keys[random() % keys.size()] + (good || random() % 2 == 0 ? ":" : "") +
                from[random() % from.size()] + (lines == 1 && random() % 2 == 0 ? "" : "\n");
    }
    return text;
}
} // namespace

TEST(meminfo, agrees_with_a_stream_on_random_texts) {
    std::mt19937 random(20261122);
    cout_capture out;
    int good = 0;
    int bad = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::string text = random_text(random);
        payload_area payload(text);
        meminfo_parser parser;
        parser.mem = {1, 2, 3, 4, 5, 6, 7, 8};
        figures expected = figures_of(parser.mem);
        std::string message;
        try {
            expected = plain_figures(text.c_str());
            ++good;
        } catch (const std::exception& e) {
            message = std::string("parse_meminfo failed:") + e.what() + "\n";
            ++bad;
        }
        ASSERT_EQ(parser.parse_meminfo(payload.data()), message.empty()) << text;
        ASSERT_EQ(out.take(), message) << text;
        ASSERT_EQ(figures_of(parser.mem), expected) << text;

        std::unordered_map<std::string, long> mine, plain;
        auto outcome = [&text](auto parse, auto& table) {
            try {
                parse(text, table);
                return "";
            } catch (const std::invalid_argument&) {
                return "no number";
            } catch (const std::out_of_range&) {
                return "too large";
            }
        };
        auto parse = [&parser](auto& from, auto& table) { parser.parseMeminfo(from, table); };
        ASSERT_STREQ(outcome(parse, mine), outcome(plain_parse, plain)) << text;
        ASSERT_EQ(mine, plain) << text;
    }
    EXPECT_GT(good, 1000);
    EXPECT_GT(bad, 1000);
}

TEST(meminfo, reads_nothing_behind_a_payload_without_an_end) {
    cout_capture out;
    std::string text = "MemTotal: 1\nSlab: 7 ";
    text.resize(answer_payload_max, 'k');
    payload_area payload(text);
    meminfo_parser parser;
    EXPECT_EQ(parser.parse_meminfo(payload.data()), 1);
    EXPECT_EQ(figures_of(parser.mem), (figures{1, 0, 0, 0, 0, 7, 0, 0}));
    EXPECT_EQ(parser.parse_meminfo(nullptr), 0);
    EXPECT_EQ(out.take(),
              "parse_meminfo failed:basic_string: construction from null is not valid\n");
}

TEST(meminfo, reports_one_line_and_keeps_the_figures_of_a_broken_answer) {
    scripted_server server;
    auto connection = server.connect();
    peri_stat_manager manager(connection);
    const char* const line = "MemTotal: 3.8G, Available: 1.5G, Anon: 123.0K, File: 3.0M, Slab: "
                             "0.0K, Buffer/Cache: 1023.0K";
    server.next_text(26, "MemTotal: 3951104 kB\nMemFree: 5 kB\nMemAvailable: 1572864\n"
                         "Active(anon): 100\nInactive(anon): 23\nActive(file): 2048\n"
                         "Inactive(file): 1024\nBuffers: 1000\nCached: 23\n");
    EXPECT_EQ(manager.get_meminfo(nullptr), 0);
    EXPECT_EQ(manager.mem_parser->mem.memfree, 5U);

    cout_capture printed;
    server.next_text(26, "MemTotal: 1\n\nSlab: 2\n");
    std::ostringstream out;
    EXPECT_EQ(manager.get_meminfo(&out), 0);
    EXPECT_EQ(out.str(), line);
    EXPECT_EQ(printed.take(), "parse_meminfo failed:stol\n");

    server.next_text(26, "");
    EXPECT_EQ(manager.get_meminfo(nullptr), 0);
    EXPECT_EQ(figures_of(manager.mem_parser->mem), figures{});
}
