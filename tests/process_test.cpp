// Processes and performance counting: decoding, rates, reports, and the manager's requests.
#include "cpu_stat_manager.h"

#include "log_capture.h"
#include "scripted_server.h"

#include <cstring>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>

namespace {
unsigned char* bytes(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

// A status line with some of its 42 fields set.
std::string status(long utime, long stime, const char* comm = "(cat)") {
    return "1234 " + std::string(comm) + " R 1 1234 1234 34816 -1 4194304 1 2 3 4 " +
           std::to_string(utime) + " " + std::to_string(stime) +
           " 5 6 20 0 1 0 99 8192 250 18446744073709551615 1 2 3 4 5 6 7 8 9 0 0 0 17 3 0 0 11\n";
}

template<class Record>
std::string as_text(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof record};
}
} // namespace

TEST(process_stat_parser, reads_the_status_line) {
    std::string text = status(10, 20, "(a_name_of_20_chars)");
    process_stat_parser parser(1234, 5);
    ASSERT_EQ(parser.parse_process_stat(bytes(text), 0), 1U);
    const process_stat& s = *parser.last_process_stat;
    EXPECT_STREQ(s.comm, "(a_name_of_20_c");
    EXPECT_EQ(s.pid, 1234);
    EXPECT_EQ(s.tpgid, -1);
    EXPECT_EQ(s.utime, 10U);
    EXPECT_EQ(s.rsslim, ~0UL);
    EXPECT_EQ(s.delayacct_blkio_ticks, 11U);
    EXPECT_EQ(parser.state, 'R');
    EXPECT_EQ(parser.rss, 250U);
    EXPECT_EQ(parser.priority, 20);
    EXPECT_EQ(parser.processor, 3);
    text = "77 (x"; // ends early: the rest is 0
    ASSERT_EQ(parser.parse_process_stat(bytes(text), 0), 1U);
    EXPECT_EQ(parser.last_process_stat->pid, 77);
    EXPECT_EQ(parser.rss, 0U);
    cout_capture output;
    EXPECT_EQ(parser.parse_process_stat(nullptr, 0), 0U);
    EXPECT_EQ(output.take(),
              "parse_process_stat failed:basic_string: construction from null is not valid\n");
    EXPECT_EQ(parser.last_process_stat->pid, 77);
}

TEST(process_stat_parser, computes_usage_in_percent_of_one_cpu) {
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
        std::string first = status(c.first, 0);
        std::string second = status(0, c.second);
        parser.parse_process_stat(bytes(first), 7);
        EXPECT_EQ(parser.process_usage, 0) << "nothing to compare with";
        parser.parse_process_stat(bytes(second), c.ticks);
        EXPECT_DOUBLE_EQ(parser.process_usage, c.usage) << c.second;
    }
}

TEST(process_io_parser, computes_rates_over_whole_seconds) {
    auto io = [](long read, long written) {
        return "rchar: 1\nwchar: 2\nsyscr: 3\nsyscw: 4\nread_bytes: " + std::to_string(read) +
               "\nwrite_bytes: " + std::to_string(written) + "\n";
    };
    process_io_parser parser(1);
    const struct {
        std::string text;
        unsigned int elapsed_ms;
        int result;
        double read, written;
        const char* printed;
    } steps[] = {
        {io(1000, 0), 9000, 1, 0, 0, ""},
        {io(6120, 4096), 2500, 1, 2.5, 2, ""},
        {io(99999, 99999), 999, 1, 2.5, 2, ""}, // not a whole second: the rates stay
        {"rchar:\n", 1000, 0, 2.5, 2, "parse_process_io failed:stol\n"},
        {"rchar: 99999999999999999999\n", 1000, 0, 2.5, 2, "parse_process_io failed:stol\n"},
        {io(99999 + 1024, 99999 - 1024), 1000, 1, 1, 18014398509481984.0, ""},
    };
    for (const auto& step : steps) {
        cout_capture output;
        std::string text = step.text;
        EXPECT_EQ(parser.parse_process_io(bytes(text), step.elapsed_ms), step.result);
        EXPECT_DOUBLE_EQ(parser.rd_per_second, step.read) << text;
        EXPECT_DOUBLE_EQ(parser.wr_per_second, step.written) << text;
        EXPECT_EQ(output.take(), step.printed);
    }
    EXPECT_EQ(parser.last_pio->syscw, 4U);
    const auto figures = parser.parse_process_io_file("a: 1\nb:\t-2 kB\na:3\nc:+4:5");
    EXPECT_EQ(figures, (std::unordered_map<std::string, long>{{"a", 3}, {"b", -2}, {"c", 4}}));
    EXPECT_THROW(parser.parse_process_io_file("no colon"), std::invalid_argument);
    EXPECT_THROW(parser.parse_process_io_file("a: 1\n\nb: 2"), std::invalid_argument);
    EXPECT_THROW(parser.parse_process_io_file("a: 9223372036854775808"), std::out_of_range);
}

TEST(cpu_stat_manager, sends_what_its_queries_say) {
    scripted_server server;
    cout_capture output;
    {
        cpu_stat_manager manager(server.connect(true));
        manager.add_stat_monitor_process(0x01020304);
        manager.add_io_monitor_process(-2);
        const struct {
            int sub_command;
            std::string payload;
            std::function<int()> query;
        } cases[] = {
            {1, std::string(4, '\0'), [&] { return manager.get_cpu_usage(nullptr); }},
            {3, "\4\3\2\1", [&] { return manager.get_process_stat(nullptr); }},
            {4, "\xFE\xFF\xFF\xFF", [&] { return manager.get_process_io(nullptr); }},
            {8, std::string("\7\0\0\0", 4), [&] { return manager.get_process_all(7, nullptr); }},
            {9, std::string(4, '\0'), [&] { return manager.get_interrupt(nullptr); }},
            {10, std::string(4, '\0'), [&] { return manager.enable_perf_mon(); }},
            {11, std::string(4, '\0'), [&] { return manager.get_perf_data(nullptr); }},
            {12, std::string(4, '\0'), [&] { return manager.disable_perf_mon(); }},
            {8, std::string("\n\0\0\0", 4), [&] { return manager.cpu_mon_exit(); }},
            {10, std::string(4, '\0'), [&] { return manager.enable_perf_mon(); }},
        };
        for (const auto& c : cases) {
            EXPECT_EQ(c.query(), 0) << c.sub_command;
            const std::vector<std::string> requests = server.take_requests();
            ASSERT_EQ(requests.size(), 1U);
            EXPECT_EQ(requests[0].size(), 52U);
            EXPECT_EQ(header_of(requests[0]).command, 44546);
            EXPECT_EQ(header_of(requests[0]).sub_command, c.sub_command);
            EXPECT_EQ(requests[0].substr(44, 4), c.payload);
        }
        EXPECT_EQ(manager.process_parser->pid, 7);
    }
    // Counting was on: leaving takes two requests.
    const std::vector<std::string> farewell = server.take_requests();
    ASSERT_EQ(farewell.size(), 2U);
    EXPECT_EQ(header_of(farewell[0]).sub_command, 8);
    EXPECT_EQ(farewell[0].substr(44, 4), std::string("\n\0\0\0", 4));
    EXPECT_EQ(header_of(farewell[1]).sub_command, 12);
}

TEST(cpu_stat_manager, connects_once_and_leaves_silently_without_a_connection) {
    log_capture log;
    scripted_server server;
    { cpu_stat_manager unconnected; }
    EXPECT_TRUE(log.lines().empty());
    server.script_handshake();
    server.next({});
    try {
        cpu_stat_manager manager("127.0.0.1", server.port());
        FAIL();
    } catch (const char* failure) {
        EXPECT_STREQ(failure, "CPU connect to server failed");
    }
    EXPECT_EQ(server.take_all_requests().size(), 1U) << "nothing but the handshake";

    auto connection = std::make_shared<client_comm>("127.0.0.1", server.port());
    cpu_stat_manager first(connection);
    void* socket = connection->get_socket();
    ASSERT_NE(socket, nullptr);
    cpu_stat_manager second(connection);
    EXPECT_EQ(connection->get_socket(), socket);
    cpu_stat_manager third;
    third.client = connection;
    EXPECT_EQ(third.get_cpu_usage(nullptr), 0);
}

TEST(cpu_stat_manager, reports_each_process_and_adds_up_failures) {
    log_capture log;
    scripted_server server;
    cpu_stat_manager manager(server.connect());
    std::ostringstream out;
    EXPECT_EQ(manager.get_process_stat(&out), 0);
    EXPECT_TRUE(server.take_requests().empty());

    for (int pid : {10, 11, 12})
        manager.add_stat_monitor_process(pid);
    server.next({error_packet(3, -5)});
    server.next_text(3, status(1, 2));
    server.next({error_packet(3, -3)});
    out << std::hex;
    EXPECT_EQ(manager.get_process_stat(&out), -8);
    EXPECT_EQ(out.str(), "pid:11, usage:0%, processor:3, rss:250 pages, priority:20, state:R\n");
    const int worst = std::numeric_limits<int>::min();
    for (int i = 0; i < 3; ++i)
        server.next({error_packet(3, worst)});
    EXPECT_EQ(manager.get_process_stat(nullptr), worst);

    manager.add_io_monitor_process(20);
    out.str({});
    server.next_text(4, "read_bytes: 5\n");
    EXPECT_EQ(manager.get_process_io(&out), 0);
    EXPECT_EQ(out.str(), "pid:20, read/s:0, write/s:0\n");
}

// Intervals are those between receipts, times the manager's count of CPUs.
TEST(cpu_stat_manager, measures_usage_between_two_receipts) {
    scripted_server server;
    cpu_stat_manager manager(server.connect());
    manager.add_stat_monitor_process(1);
    manager.cpus_num = 3; // the process was added when there were 6
    server.next_text(3, status(100, 0));
    server.next_text(3, status(150, 0));
    EXPECT_EQ(manager.get_process_stat(nullptr), 0);
    process_stat_parser& parser = *manager.stat_parser[0];
    parser.last_time.tv_sec -= 2;
    timeval before = parser.last_time;
    EXPECT_EQ(manager.get_process_stat(nullptr), 0);
    const auto elapsed_ms = time_diff(before, parser.last_time);
    EXPECT_DOUBLE_EQ(parser.process_usage,
                     50.0 / static_cast<double>(elapsed_ms * 3 / 10) * 100 * 6);
}

TEST(cpu_stat_manager, prints_the_table_of_busiest_processes) {
    top_pid_info table{};
    table.pid_num = 1;
    pid_msg& first = table.send_pid_info[0];
    first.pid = 4242;
    first.ppid = 1;
    std::memcpy(first.comm, "sixteen_letters!", 16);
    first.state = 'R';
    first.priority = -20;
    first.processor = 7;
    first.io_per_second = 1.5F;
    first.process_usage = 99.5F;
    first.nnu_usage = 0.25F;
    first.net_band = 10;
    first.rss = 1536;
    scripted_server server;
    cpu_stat_manager manager(server.connect());
    server.next_text(8, as_text(table));
    std::ostringstream out;
    EXPECT_EQ(manager.get_process_all(0, &out), 0);
    std::istringstream lines(out.str());
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "PID     PPID    CPU     Comm                    IO:KB/s   %CPU    %NNU    Rss "
                    "      Priority  State     Net:KB/s  ");
    std::getline(lines, line);
    EXPECT_EQ(line, "4242    1       7       sixteen_letters!        1.50      99.50   0.25    "
                    "1.5K      -20       R         10.00     ");
    int rows = 1;
    while (std::getline(lines, line))
        ++rows;
    EXPECT_EQ(rows, 146);
}

TEST(perf_stat_parser, follows_the_switch_and_reports_the_counters) {
    perf_counters counters{};
    counters.instructions = 2000000;
    counters.cycles = 1000000;
    counters.cs = 3;
    counters.migrations = 4;
    counters.page_faults = 5;
    counters.stall_frontend = 250000;
    counters.l1d_misses = 1;
    counters.l1d_load = 8;
    counters.l2d_cache = 1000;
    counters.l2d_cache_refill = 50;
    counters.branch_misses = 1;
    scripted_server server;
    cpu_stat_manager manager(server.connect());
    std::ostringstream out;
    perf_stat_parser& parser = *manager.perf_parser;
    EXPECT_EQ(parser.during_ms, -1);
    manager.show_result(manager.perf_parser, out);
    EXPECT_EQ(out.str(), "") << "no counters yet";
    server.next_text(10, "");
    EXPECT_EQ(manager.enable_perf_mon(), 0);
    EXPECT_TRUE(parser.enabled);
    parser.timestamp.tv_sec -= 5;
    server.next_text(11, as_text(counters));
    EXPECT_EQ(manager.get_perf_data(&out), 0);
    EXPECT_GE(parser.during_ms, 5000);
    EXPECT_EQ(out.str(), "System Performance Stat:\n"
                         "During:                 " +
                             std::to_string(parser.during_ms) +
                             " ms\n"
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
    log_capture log;
    server.next({error_packet(11, -13)});
    EXPECT_EQ(manager.get_perf_data(nullptr), -13);
    EXPECT_TRUE(log.has("6 MONCL_CPU: get_perf_data failed:-13"));
    server.next_text(12, "");
    EXPECT_EQ(manager.disable_perf_mon(), 0);
    EXPECT_FALSE(parser.enabled);
    server.next_text(99, ""); // an answer to something else changes nothing but the time
    const timeval before = parser.timestamp;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(manager.enable_perf_mon(), 0);
    EXPECT_FALSE(parser.enabled);
    EXPECT_NE(parser.timestamp.tv_usec, before.tv_usec);
}
