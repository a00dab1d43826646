// System information: decoding and queries.
#include "manager_support.h"
#include "sys_info_manager.h"

TEST(sys_info, texts) {
    cpu_freq_parser freq;
    cpu_possible_parser possible;
    version_parser version;
    auto frequency = [&](const std::string& text) {
        freq.parse_cpu_freq(payload_area(text));
        return std::to_string(freq.cpu_f->cpu_frequency);
    };
    auto count = [&](const std::string& text) {
        possible.parse_cpu_possible(payload_area(text));
        return std::to_string(possible.cpu_num);
    };
    auto word = [&](const std::string& text) {
        version.parse_version(payload_area(text));
        return version.ver->version;
    };
    const std::string most = "18446744073709551615";
    expect_each(frequency, {{"1500000\n", "1500000"},
                            {"", "0"},
                            {"1\n2\n\n", "2"},
                            {"7\nx\n", "0"},
                            {"99999999999999999999", most},
                            {"-1", most}});
    // One is added to what follows two characters, or to the count before.
    expect_each(count, {{"0-7\n", "8"},
                        {"0-63\n", "64"},
                        {"", "64"},
                        {"0\n", "65"},
                        {"0-x", "1"},
                        {"10-15", "-14"},
                        {"0-3\n0-1\n", "2"}});
    expect_each(word, {{"V1.2 build\n", "V1.2"}, {"", ""}, {"a\n  b c\n\n", "b"}});
    EXPECT_THROW(freq.parse_cpu_freq(nullptr), std::logic_error);
    EXPECT_THROW(possible.parse_cpu_possible(nullptr), std::logic_error);
    EXPECT_THROW(version.parse_version(nullptr), std::logic_error);
}

TEST(sys_info, queries) {
    using manager = sysinfo_manager;
    scripted_server server;
    manager m("127.0.0.1", server.port());
    int cpu = 0;
    for (auto query : {&manager::get_cpu0_freq, &manager::get_cpu1_freq, &manager::get_cpu2_freq,
                       &manager::get_cpu3_freq, &manager::get_cpu4_freq, &manager::get_cpu5_freq,
                       &manager::get_cpu6_freq, &manager::get_cpu7_freq}) {
        server.next_text(1, std::to_string(1000 + ++cpu));
        EXPECT_EQ(sent(server, (m.*query)()), "AE01:" + std::to_string(cpu));
        EXPECT_EQ(m.last_cpu_freq(), 1000U + static_cast<unsigned>(cpu));
    }
    server.next_text(9, "0-7\n");
    EXPECT_EQ(sent(server, m.get_cpu_possible(nullptr)), "8 AE01:9");
    server.next_text(10, "V1 x");
    EXPECT_EQ(sent(server, m.get_version()), "AE01:10");
    EXPECT_EQ(m.last_version(), "V1");
    log_capture log;
    server.next({error_packet(9, -19)});
    EXPECT_EQ(m.get_cpu_possible(nullptr), -19);
    EXPECT_EQ(log.take(), "6 MONCL_COMM: Handle request return -19\n"
                          "6 MONCL_SYSINFO: Receive message error with -19\n"
                          "6 MONCL_SYSINFO: get cpu num failed\n");
    close_at_once(*m.client);
}
