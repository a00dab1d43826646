// System information: decoding and queries.
#include "manager_support.h"
#include "sys_info_manager.h"

TEST(sys_info, decoding) {
    cpu_freq_parser freq;
    cpu_possible_parser possible;
    version_parser version;
    auto decoded = [&](const std::string& text) {
        freq.parse_cpu_freq(payload_area(text));
        possible.parse_cpu_possible(payload_area(text));
        version.parse_version(payload_area(text));
        return line_of(freq.cpu_f->cpu_frequency, possible.cpu_num, version.ver->version);
    };
    // A frequency, a count of CPUs (one more than what follows two characters, or else than the
    // count before), a version (a word).
    expect_each(decoded, {{"a range", "0-7\n", "0 8 0-7 "},
                          {"nothing", "", "0 8  "},
                          {"one CPU", "0\n", "0 9 0 "},
                          {"a range to no number", "0-x", "0 1 0-x "},
                          {"two digits", "0-63", "0 64 0-63 "},
                          {"a range that does not start at 0", "10-15", "10 -14 10-15 "},
                          {"a version", "V1.2 x\n", "0 1 V1.2 "},
                          {"the last line with a number", "1\n  2 c\n\n", "2 4 2 "},
                          {"a last line without one", "7\nx", "0 6 x "},
                          {"a number below zero", "-1", "18446744073709551615 7 -1 "},
                          {"a number too large", "99999999999999999999",
                           "18446744073709551615 -2147483648 99999999999999999999 "}});
}

TEST(sys_info, queries) {
    using manager = sysinfo_manager;
    scripted_server server;
    manager m("127.0.0.1", server.port());
    unsigned cpu = 0;
    for (auto query : {&manager::get_cpu0_freq, &manager::get_cpu1_freq, &manager::get_cpu2_freq,
                       &manager::get_cpu3_freq, &manager::get_cpu4_freq, &manager::get_cpu5_freq,
                       &manager::get_cpu6_freq, &manager::get_cpu7_freq}) {
        server.next_text(1, std::to_string(++cpu));
        EXPECT_EQ(sent(server, (m.*query)()), "AE01:" + std::to_string(cpu));
        EXPECT_EQ(m.last_cpu_freq(), cpu);
    }
    server.next_text(9, "0-7\n");
    EXPECT_EQ(sent(server, m.get_cpu_possible(nullptr)), "8 AE01:9");
    server.next_text(10, "V1 x");
    EXPECT_EQ(sent(server, m.get_version()), "AE01:10");
    EXPECT_EQ(m.last_version(), "V1");
    log_capture log;
    server.next({error_packet(9, -19)});
    EXPECT_EQ(m.get_cpu_possible(nullptr), -19);
    EXPECT_NE(log.take().find("6 MONCL_SYSINFO: get cpu num failed\n"), std::string::npos);
    close_at_once(*m.client);
}
