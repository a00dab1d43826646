// System information: decoding and queries.
#include "sys_info_manager.h"

#include "log_capture.h"
#include "scripted_server.h"

#include <gtest/gtest.h>

namespace {
unsigned char* bytes(const char* text) {
    return reinterpret_cast<unsigned char*>(const_cast<char*>(text));
}
} // namespace

TEST(cpu_freq_parser, takes_the_last_line_with_a_number) {
    const struct {
        const char* text;
        std::uint64_t frequency;
    } cases[] = {
        {"1500000\n", 1500000},         {"", 0},      {"abc\n", 0},  {"1\n2\n\n", 2}, {"7\nx\n", 0},
        {"99999999999999999999", ~0UL}, {"-1", ~0UL}, {" 5 6\n", 5}, {"\n\n", 0},
    };
    cpu_freq_parser parser;
    for (const auto& c : cases) {
        EXPECT_EQ(parser.parse_cpu_freq(bytes(c.text)), 0);
        EXPECT_EQ(parser.cpu_f->cpu_frequency, c.frequency) << c.text;
    }
    EXPECT_THROW(parser.parse_cpu_freq(nullptr), std::logic_error);
}

TEST(cpu_possible_parser, adds_one_to_what_follows_two_characters) {
    cpu_possible_parser parser;
    const struct {
        const char* text;
        int count;
    } cases[] = {
        {"0-7\n", 8}, {"0-7", 8}, {"0-3", 4},     {"0-63\n", 64},    {"", 64},
        {"0\n", 65},  {"0-x", 1}, {"10-15", -14}, {"0-3\n0-1\n", 2},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(parser.parse_cpu_possible(bytes(c.text)), 0);
        EXPECT_EQ(parser.cpu_num, c.count) << c.text;
    }
    EXPECT_THROW(parser.parse_cpu_possible(nullptr), std::logic_error);
}

TEST(version_parser, takes_the_first_word_of_the_last_line) {
    const struct {
        const char* text;
        const char* version;
    } cases[] = {{"V1.2.3 build\n", "V1.2.3"},
                 {"", ""},
                 {"a\n  b c\n\n", "b"},
                 {"\t6.1.0-18-arm64", "6.1.0-18-arm64"}};
    version_parser parser;
    for (const auto& c : cases) {
        EXPECT_EQ(parser.parse_version(bytes(c.text)), 1);
        EXPECT_EQ(parser.ver->version, c.version);
    }
    EXPECT_THROW(parser.parse_version(nullptr), std::logic_error);
}

TEST(sysinfo_manager, asks_for_what_its_queries_say) {
    log_capture log;
    scripted_server server;
    sysinfo_manager manager("127.0.0.1", server.port());
    int (sysinfo_manager::*const queries[])() = {
        &sysinfo_manager::get_cpu0_freq, &sysinfo_manager::get_cpu1_freq,
        &sysinfo_manager::get_cpu2_freq, &sysinfo_manager::get_cpu3_freq,
        &sysinfo_manager::get_cpu4_freq, &sysinfo_manager::get_cpu5_freq,
        &sysinfo_manager::get_cpu6_freq, &sysinfo_manager::get_cpu7_freq};
    for (int cpu = 0; cpu < 8; ++cpu) {
        server.next_text(cpu + 1, std::to_string(1000 + cpu) + "\n");
        EXPECT_EQ((manager.*queries[cpu])(), 0);
        EXPECT_EQ(manager.last_cpu_freq(), 1000U + static_cast<unsigned>(cpu));
    }
    server.next_text(9, "0-7\n");
    EXPECT_EQ(manager.get_cpu_possible(nullptr), 8);
    server.next_text(10, "V1 x");
    EXPECT_EQ(manager.get_version(), 0);
    EXPECT_EQ(manager.last_version(), "V1");
    server.next_text(10, "");
    EXPECT_EQ(manager.get_version(), 0);
    EXPECT_EQ(manager.last_version(), "");

    const int sub_commands[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 10};
    const std::vector<std::string> requests = server.take_requests();
    ASSERT_EQ(requests.size(), std::size(sub_commands));
    for (std::size_t i = 0; i < requests.size(); ++i) {
        EXPECT_EQ(requests[i].size(), 52U);
        EXPECT_EQ(header_of(requests[i]).command, 44545);
        EXPECT_EQ(header_of(requests[i]).sub_command, sub_commands[i]);
        EXPECT_EQ(header_of(requests[i]).msg_len, 4);
        EXPECT_EQ(requests[i].substr(44, 4), std::string(4, '\0'));
    }

    log = log_capture();
    server.next({error_packet(9, -19)});
    EXPECT_EQ(manager.get_cpu_possible(nullptr), -19);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"6 MONCL_COMM: Handle request return -19",
                                        "6 MONCL_SYSINFO: Receive message error with -19",
                                        "6 MONCL_SYSINFO: get cpu num failed"}));
    close_at_once(*manager.client);
}

TEST(sysinfo_manager, throws_when_nobody_answers) {
    scripted_server server;
    server.script_handshake();
    server.next({});
    try {
        sysinfo_manager manager("127.0.0.1", server.port());
        FAIL();
    } catch (const char* failure) {
        EXPECT_STREQ(failure, "SYSINFO connect to server failed");
    }
    EXPECT_EQ(server.take_all_requests().size(), 1U);
}
