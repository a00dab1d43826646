// Processes and performance counting: decoding, rates, reports, and the manager's requests.
#include "cpu_stat_manager.h"
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
        EXPECT_EQ(parser.parse_process_stat(payload_area(text).data(), 0), 1U);
        const process_stat& s = *parser.last_process_stat;
        std::ostringstream out;
        out << s.pid << ' ' << s.comm << ' ' << s.tpgid << ' ' << s.utime << ' ' << s.stime << ' '
            << s.starttime << ' ' << s.rsslim << ' ' << s.exit_signal << ' '
            << s.delayacct_blkio_ticks << '|' << parser.state << ' ' << parser.rss << ' '
            << parser.priority << ' ' << parser.processor;
        return out.str();
    };
    EXPECT_EQ(decode(status(10, 20, "(a_name_of_20_chars)")),
              "1234 (a_name_of_20_c -1 10 20 99 18446744073709551615 17 11|R 250 20 3");
    EXPECT_EQ(decode("77 (x").substr(0, 8), "77 (x 0 "); // ends early: the rest is 0
    cout_capture output;
    EXPECT_EQ(parser.parse_process_stat(nullptr, 0), 0U);
    EXPECT_EQ(output.take(),
              "parse_process_stat failed:basic_string: construction from null is not valid\n");
    EXPECT_EQ(parser.last_process_stat->pid, 77);
}

TEST(process_stat, usage_is_in_percent_of_one_cpu) {
    const struct {
        long first, second;
        unsigned int ticks;
        int cpus;
        double usage;
    } cases[] = {
        {100, 150, 500, 5, 50},
        {100, 150, 0, 5, 0},
        {100, 100, 500, 5, 0},
        {150, 100, 500, 5, -50},
        {0, 400, 200, 2, 400},
        {2147483647, 2147483747, 500, 5, 100},
        {0, 4294967296 + 50, 500, 5, 50}, // run times are cut to 32 bits
    };
    for (const auto& c : cases) {
        process_stat_parser parser(1, c.cpus);
        parser.parse_process_stat(payload_area(status(c.first, 0)).data(), 7);
        EXPECT_EQ(parser.process_usage, 0) << "nothing to compare with";
        parser.parse_process_stat(payload_area(status(0, c.second)).data(), c.ticks);
        EXPECT_DOUBLE_EQ(parser.process_usage, c.usage) << c.second;
    }
}

TEST(process_io, rates_are_over_whole_seconds) {
    auto io = [](long read, long written) {
        return "rchar: 1\nsyscw: 4\nread_bytes: " + std::to_string(read) +
               "\nwrite_bytes: " + std::to_string(written) + "\n";
    };
    const struct {
        std::string text;
        unsigned int elapsed_ms;
        int result;
        double read, written;
    } steps[] = {
        {io(1000, 0), 9000, 1, 0, 0},
        {io(6120, 4096), 2500, 1, 2.5, 2},
        {io(99999, 99999), 999, 1, 2.5, 2}, // not a whole second: the rates stay
        {"rchar:\n", 1000, 0, 2.5, 2},
        {"rchar: 99999999999999999999\n", 1000, 0, 2.5, 2},
        {io(99999 + 1024, 99999 - 1024), 1000, 1, 1, 18014398509481984.0},
    };
    process_io_parser parser(1);
    for (const auto& step : steps) {
        cout_capture output;
        EXPECT_EQ(parser.parse_process_io(payload_area(step.text).data(), step.elapsed_ms),
                  step.result);
        EXPECT_DOUBLE_EQ(parser.rd_per_second, step.read) << step.text;
        EXPECT_DOUBLE_EQ(parser.wr_per_second, step.written) << step.text;
        EXPECT_EQ(output.take(), step.result == 1 ? "" : "parse_process_io failed:stol\n");
    }
    EXPECT_EQ(parser.last_pio->syscw, 4U);
}

TEST(cpu_stat_manager, sends_what_its_queries_say) {
    served<cpu_stat_manager> with(true);
    cpu_stat_manager& m = with.m;
    cout_capture output;
    m.add_stat_monitor_process(0x01020304);
    m.add_io_monitor_process(-2);
    EXPECT_EQ(with.sent(m.get_cpu_usage(nullptr)), "AE02:1");
    EXPECT_EQ(with.sent(m.get_process_stat(nullptr)), "AE02:3=04030201");
    EXPECT_EQ(with.sent(m.get_process_io(nullptr)), "AE02:4=FEFFFFFF");
    EXPECT_EQ(with.sent(m.get_process_all(7, nullptr)), "AE02:8=07000000");
    EXPECT_EQ(with.sent(m.get_interrupt(nullptr)), "AE02:9");
    EXPECT_EQ(with.sent(m.enable_perf_mon()), "AE02:10");
    EXPECT_EQ(with.sent(m.get_perf_data(nullptr)), "AE02:11");
    EXPECT_EQ(with.sent(m.disable_perf_mon()), "AE02:12");
    EXPECT_EQ(with.sent(m.cpu_mon_exit()), "AE02:8=0A000000");
    void* const socket = with.connection->get_socket();
    {
        cpu_stat_manager second(with.connection);
        EXPECT_EQ(second.enable_perf_mon(), 0);
        with.server.take_requests();
    } // counting was on: leaving takes two requests
    EXPECT_EQ(with.sent(0), "AE02:8=0A000000 AE02:12");
    EXPECT_EQ(with.connection->get_socket(), socket) << "connected once";
}

TEST(cpu_stat_manager, reports_each_process_and_adds_up_failures) {
    served<cpu_stat_manager> with;
    cpu_stat_manager& m = with.m;
    for (int pid : {10, 11, 12})
        m.add_stat_monitor_process(pid);
    std::ostringstream out;
    out << std::hex;
    with.server.next({error_packet(3, -5)});
    with.server.next_text(3, status(1, 2));
    with.server.next({error_packet(3, -3)});
    EXPECT_EQ(m.get_process_stat(&out), -8);
    const int worst = std::numeric_limits<int>::min();
    for (int i = 0; i < 3; ++i)
        with.server.next({error_packet(3, worst)});
    EXPECT_EQ(m.get_process_stat(nullptr), worst);
    m.add_io_monitor_process(20);
    with.server.next_text(4, "read_bytes: 5\n");
    EXPECT_EQ(m.get_process_io(&out), 0);
    EXPECT_EQ(out.str(), "pid:11, usage:0%, processor:3, rss:250 pages, priority:20, state:R\n"
                         "pid:20, read/s:0, write/s:0\n");
}

// Intervals are those between receipts, times the manager's count of CPUs, though the process was
// added when there were 6.
TEST(cpu_stat_manager, measures_between_two_receipts) {
    offline<cpu_stat_manager> m;
    m.add_stat_monitor_process(1);
    m.add_io_monitor_process(2);
    m.cpus_num = 3;
    report(m, m.stat_parser[0], 3, status(100, 0), {10, 500000});
    EXPECT_EQ(report(m, m.stat_parser[0], 3, status(150, 0), {12, 500000}).substr(0, 19),
              "pid:1, usage:50.000");
    report(m, m.io_parser[0], 4, "read_bytes: 0\n", {10, 500000});
    EXPECT_EQ(report(m, m.io_parser[0], 4, "read_bytes: 4096\n", {12, 500000}),
              "pid:2, read/s:2.000, write/s:0.000\n");
}

TEST(cpu_stat_manager, prints_the_table_of_busiest_processes) {
    top_pid_info table{};
    table.send_pid_info[0] = {4242,  1,   "sixteen_letters", 'R', -20, 7, 1.5F, 99.5F, 10,
                              0.25F, 1536};
    table.send_pid_info[0].comm[15] = '!';
    offline<cpu_stat_manager> m;
    const std::string text = report(m, m.process_parser, 8, native(table));
    EXPECT_EQ(text.substr(0, text.find('\n', text.find('\n') + 1)),
              "PID     PPID    CPU     Comm                    IO:KB/s   %CPU    %NNU    Rss "
              "      Priority  State     Net:KB/s  \n"
              "4242    1       7       sixteen_letters!        1.50      99.50   0.25    1.5K    "
              "  -20       R         10.00     ");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 147);
}

TEST(cpu_stat_manager, follows_the_switch_of_performance_counting) {
    perf_counters counters{};
    counters.instructions = 2000000;
    counters.cycles = 1000000;
    counters.cs = 3;
    counters.migrations = 4;
    counters.page_faults = 5;
    counters.stall_frontend = 250000;
    counters.l1d_misses = counters.branch_misses = 1;
    counters.l1d_load = 8;
    counters.l2d_cache = 1000;
    counters.l2d_cache_refill = 50;
    offline<cpu_stat_manager> m;
    EXPECT_EQ(report(m, m.perf_parser, 10, "", {95, 0}), "");
    EXPECT_TRUE(m.perf_parser->enabled);
    EXPECT_EQ(report(m, m.perf_parser, 11, native(counters), {100, 2000}),
              "System Performance Stat:\n"
              "During:                 5002 ms\n"
              "IPC:                    2.00\n"
              "Migrations:             4\n"
              "Page_faults:            5\n"
              "Context-switch:         3\n"
              "Frontend_stall:         25.00 %\n"
              "Backend_stall:          0.00 %\n"
              "L1D-miss:               12.50 %\n"
              "L1I-miss:               -nan %\n"
              "L2D-miss:               5.00 %\n"
              "L3D-miss:               -nan %\n"
              "LLC-miss:               -nan %\n"
              "Dtlb-miss:              -nan %\n"
              "ITLB-miss:              -nan %\n"
              "Branch-miss:            inf %\n");
    report(m, m.perf_parser, 99, "", {103, 0}); // changes nothing but the time
    EXPECT_TRUE(m.perf_parser->enabled);
    EXPECT_EQ(m.perf_parser->timestamp.tv_sec, 103);
    report(m, m.perf_parser, 12, "");
    EXPECT_FALSE(m.perf_parser->enabled);
    served<cpu_stat_manager> with;
    log_capture log;
    with.server.next({error_packet(11, -13)});
    EXPECT_EQ(with.m.get_perf_data(nullptr), -13);
    EXPECT_NE(log.take().find("6 MONCL_CPU: get_perf_data failed:-13\n"), std::string::npos);
}
