// Processes and performance counting: decoding, rates, reports, and the manager's requests.
#include "cpu_stat_manager.h"
#include "file_text.h"
#include "manager_support.h"

namespace {
// A status line with all its 42 fields.
std::string status(long utime, long stime, const std::string& comm = "(cat)") {
    return "1234 " + comm + " R 1 1234 1234 34816 -1 4194304 1 2 3 4 " + std::to_string(utime) +
           " " + std::to_string(stime) +
           " 5 6 20 0 1 0 99 8192 250 18446744073709551615 1 2 3 4 5 6 7 8 9 0 0 0 17 3 0 0 11\n";
}
} // namespace

TEST(process_stat, reads_the_status_line) {
    process_stat_parser parser(1234, 5);
    auto decode = [&parser](const std::string& text) {
        EXPECT_EQ(parser.parse_process_stat(payload_area(text), 0), 1U);
        const process_stat& s = *parser.last_process_stat;
        return line_of(s.pid, s.comm, s.tpgid, s.utime, s.stime, s.starttime, s.rsslim,
                       s.exit_signal, s.delayacct_blkio_ticks, "|", parser.state, parser.rss,
                       parser.priority, parser.processor);
    };
    EXPECT_EQ(decode(status(10, 20, "(a_name_of_20_chars)")),
              "1234 (a_name_of_20_c -1 10 20 99 18446744073709551615 17 11 | R 250 20 3 ");
    EXPECT_EQ(decode("77 (x").substr(0, 10), "77 (x 0 0 "); // ends early: the rest is 0
    EXPECT_EQ(parser.parse_process_stat(nullptr, 0), 0U);
}

// In percent of one CPU, between receipts, times the manager's count of CPUs.
TEST(process_stat, usage) {
    const std::tuple<long, long, long, int, std::string> cases[] = {
        {100, 150, 500, 5, "50.000%"},
        {100, 150, 4, 1, "0.000%"}, // no tick has passed
        {150, 100, 500, 5, "-50.000%"},
        {2147483647, 2147484047, 500, 2, "400.000%"},
        {0, 4294967296 + 50, 500, 5, "50.000%"}}; // run times are cut to 32 bits
    for (const auto& [first, second, ms, cpus, usage] : cases) {
        offline<cpu_stat_manager> m;
        m.cpus_num = cpus;
        m.add_stat_monitor_process(1);
        m.cpus_num = 2 * cpus; // since the process was added
        auto after = [&m](long us, const std::string& text) {
            return report(m, m.stat_parser[0], 3, text, {10, us}).substr(0, 21);
        };
        EXPECT_EQ(after(300000, status(first, 0)), "pid:1, usage:0.000%, ");
        EXPECT_EQ(after(300000 + ms * 1000, status(0, second)),
                  ("pid:1, usage:" + usage + ", processor").substr(0, 21));
    }
}

TEST(process_io, rates_are_over_whole_seconds) {
    offline<cpu_stat_manager> m;
    m.add_io_monitor_process(-2);
    long ms = 0;
    const struct {
        const char* name;
        long after_ms; // since the answer before
        const char* text;
        std::string rates;
    } answers[] = {
        {"nothing to compare with", 0, "read_bytes: 1000\nwrite_bytes: 0\nsyscw: 4",
         "read/s:0.000, write/s:0.000"},
        {"two seconds and a half count as two", 2500, "read_bytes: 6120\nwrite_bytes: 4096",
         "read/s:2.500, write/s:2.000"},
        {"less than a second keeps the rates", 999, "read_bytes: 99999\nwrite_bytes: 99999",
         "read/s:2.500, write/s:2.000"},
        {"so does a broken text", 1001, "rchar:\n", "read/s:2.500, write/s:2.000"},
        {"a counter that runs backwards wraps", 1000, "read_bytes: 101023\nwrite_bytes: 98975",
         "read/s:1.000, write/s:18014398509481984.000"},
    };
    for (const auto& each : answers) {
        ms += each.after_ms;
        const timeval time{1 + ms / 1000, ms % 1000 * 1000};
        EXPECT_EQ(report(m, m.io_parser[0], 4, each.text, time), "pid:-2, " + each.rates + "\n")
            << each.name;
    }
    EXPECT_EQ(m.printed.take(), "parse_process_io failed:stol\n");
}

TEST(cpu_stat_manager, sends_what_its_queries_say) {
    using manager = cpu_stat_manager;
    served<manager> with(true);
    manager& m = with.m;
    m.add_stat_monitor_process(0x01020304);
    m.add_io_monitor_process(-2);
    EXPECT_EQ(
        with.sent_by({&manager::get_cpu_usage, &manager::get_process_stat, &manager::get_process_io,
                      &manager::get_interrupt, &manager::get_perf_data}),
        "AE02:1 AE02:3=04030201 AE02:4=FEFFFFFF AE02:9 AE02:11");
    EXPECT_EQ(with.sent(m.get_process_all(7, nullptr)), "AE02:8=07000000");
    EXPECT_EQ(with.sent(m.enable_perf_mon()), "AE02:10");
    EXPECT_EQ(with.sent(m.disable_perf_mon()), "AE02:12");
    EXPECT_EQ(with.sent(m.cpu_mon_exit()), "AE02:8=0A000000");
    void* const socket = with.connection->get_socket();
    {
        cpu_stat_manager second(with.connection);
        EXPECT_EQ(with.sent(second.enable_perf_mon()), "AE02:10");
    } // counting was on: leaving takes two requests
    EXPECT_EQ(with.sent(0), "AE02:8=0A000000 AE02:12");
    EXPECT_EQ(with.connection->get_socket(), socket) << "connected once";
    // One that fails does not stop the others, and failures add up.
    m.add_stat_monitor_process(11);
    std::ostringstream out;
    out << std::hex;
    with.server.next({error_packet(3, -5)});
    with.server.next_text(3, status(1, 2));
    EXPECT_EQ(m.get_process_stat(&out), -5);
    EXPECT_EQ(out.str(), "pid:11, usage:0%, processor:3, rss:250 pages, priority:20, state:R\n");
    for (int i = 0; i < 2; ++i)
        with.server.next({error_packet(3, std::numeric_limits<int>::min())});
    EXPECT_EQ(m.get_process_stat(nullptr), std::numeric_limits<int>::min());
}

TEST(cpu_stat_manager, prints_the_table_of_busiest_processes) {
    top_pid_info table{};
    table.send_pid_info[0] = {42, 1, "fifteen_letters", 'R', -20, 7, 1.5F, 99.5F, 10, 0.25F, 1536};
    table.send_pid_info[0].comm[15] = '!'; // no NUL of its own
    offline<cpu_stat_manager> m;
    const std::string text = report(m, m.process_parser, 8, native(table));
    const std::string expected =
        "PID     PPID    CPU     Comm                    IO:KB/s   %CPU    %NNU    Rss "
        "      Priority  State     Net:KB/s  \n42      1       7       fifteen_letters!        "
        "1.50      99.50   0.25    1.5K      -20       R         10.00     \n";
    EXPECT_EQ(text.substr(0, expected.size()), expected);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 147);
}

TEST(cpu_stat_manager, follows_the_switch_of_performance_counting) {
    const std::uint64_t counters[] = {1000000, 3,   2000000, 4, 5, 250000, 0, 1, 8, 1, 4, 1000,
                                      50,      100, 30,      6, 8, 3,      8, 0, 0, 1, 0};
    offline<cpu_stat_manager> m;
    EXPECT_EQ(report(m, m.perf_parser, 10, "", {95, 0}), "");
    EXPECT_TRUE(m.perf_parser->enabled);
    std::string text = report(m, m.perf_parser, 11, native(counters), {100, 2000});
    if (const auto sign = text.find("-nan"); sign != text.npos)
        text.erase(sign, 1); // the processor chooses the sign
    EXPECT_EQ(text, test_data("reports/counters.txt"));
    report(m, m.perf_parser, 99, "", {103, 0}); // changes nothing but the time
    EXPECT_TRUE(m.perf_parser->enabled && m.perf_parser->timestamp.tv_sec == 103);
    report(m, m.perf_parser, 12, "");
    EXPECT_FALSE(m.perf_parser->enabled);
}
