// Network bandwidth: requests, rates, mixed byte order, counts that the payload cannot hold, locks.
#include "manager_support.h"
#include "net_stat_manager.h"

#include <future>
#include <set>

namespace {
std::string device(const std::string& name, std::uint64_t total) {
    return field(name, 16) + native(__builtin_bswap64(total));
}

std::string process(int pid, std::uint64_t total) {
    return native(pid) + "pad!" + native(total);
}

std::string bandwidth(int devices, const std::string& records, int processes,
                      const std::string& process_records) {
    return native(devices) + records + native(processes) + process_records;
}
} // namespace

TEST(net_stat, operations_and_exit_in_ascending_order) {
    served<net_stat_manager> with;
    net_stat_manager& m = with.m;
    auto& registered = m.parser->pid_result;
    EXPECT_EQ(with.sent(m.start_net_monitor()), "AE09:3");
    EXPECT_EQ(with.sent(m.add_net_monitor_process(0x01020304)), "AE09:1=04030201");
    EXPECT_EQ(with.sent(m.get_bandwidth_stat(nullptr)), "AE09:4");
    // One that is registered keeps its figures, and one that the server refuses is registered.
    registered[0x01020304].total = 5;
    EXPECT_EQ(m.add_net_monitor_process(0x01020304), 0);
    EXPECT_EQ(registered[0x01020304].total, 5U);
    with.server.next({error_packet(1, -3)});
    EXPECT_EQ(m.add_net_monitor_process(900), -3);
    EXPECT_EQ(with.sent(m.add_net_monitor_process(-1)),
              "AE09:1=04030201 AE09:1=84030000 AE09:1=FFFFFFFF");
    m.parser->dev_result[0];
    with.server.next({error_packet(2, -3)});
    EXPECT_EQ(with.sent(m.exit_net_monitor()), "AE09:2=FFFFFFFF AE09:2=84030000 AE09:2=04030201 "
                                               "AE09:5");
    EXPECT_TRUE(registered.empty() && m.parser->dev_result.empty());
}

TEST(net_stat, reports_rates_between_two_answers) {
    const std::string idle = " total 0 bytes, rate:0.00 Kbytes/s";
    const std::string still = "lo    0.00\nwlan0-outdoors-1.00\n";
    const std::string five = "pid:5, total 3145728 bytes, rate:3072.00 Kbytes/s";
    const std::string thirty = "pid:30, total 1024 bytes, rate:1.00 Kbytes/s";
    const std::string reset = still + "pid:5," + idle + thirty;
    offline<net_stat_manager> m;
    m.parser->pid_result = {{30, {}}, {5, {}}};
    auto next = [&m](timeval time, const std::string& payload, int sub_command = 4) {
        const std::string text = report(m, m.parser, sub_command, payload, time);
        EXPECT_EQ(text.substr(0, 17), "Net   Rate(KB/s)\n");
        return text.substr(17);
    };
    EXPECT_EQ(next({10, 1}, ""), "pid:5, total 0 bytes, rate:0.000 Kbytes/s"
                                 "pid:30, total 0 bytes, rate:0.000 Kbytes/s");
    EXPECT_EQ(next({11, 1}, bandwidth(2, device("lo", 1000000) + device("eth0", 0), 0, "")),
              "lo    976.56\neth0  0.00\npid:5," + idle + "pid:30," + idle);
    // The first total of a process counts from 0, one that is not registered is left out.
    log_capture log;
    const std::string mixed = process(30, 1024) + process(6, 1) + process(5, 3145728);
    const std::string both = device("lo", 1512000) + device("wlan0-outdoors-2", 1024);
    EXPECT_EQ(next({12, 0}, bandwidth(2, both, 3, mixed)),
              "lo    500.00\nwlan0-outdoors-1.00\n" + five + thirty);
    EXPECT_EQ(log.take(), "6 -: recive pid 6 not in pid map\n");
    // The time stamp before has no microseconds and so counts as none; it does not the next time. A
    // device that is gone keeps its figures.
    EXPECT_EQ(next({14, 500}, bandwidth(1, device("lo", 9999999), -1, "")), still + five + thirty);
    // No whole millisecond has passed; no device, and a process after that count.
    EXPECT_EQ(next({14, 1499}, bandwidth(-1, "", 1, process(5, 0))), reset);
    // Answers to anything else carry no figures and no time.
    EXPECT_EQ(next({15, 1}, bandwidth(1, device("no", 1), 1, process(5, 1)), 3), reset);
    // Counters that run backwards wrap.
    EXPECT_EQ(next({24, 1499}, bandwidth(1, device("lo", 9999998), 1, process(30, 0))),
              "lo    1801439850948198.50\nwlan0-outdoors-1.00\npid:5," + idle +
                  "pid:30, total 0 bytes, rate:1801439850948198.50 Kbytes/s");
}

TEST(net_stat, takes_only_the_records_the_payload_holds) {
    constexpr int most = std::numeric_limits<std::int32_t>::max();
    std::string full, processes;
    for (int i = 0; i < 512; ++i) {
        full += i < 341 ? device("dev", 1) : "";
        processes += process(1 + i % 2, static_cast<std::uint64_t>(i));
    }
    const std::tuple<int, std::string, int, std::string> cases[] = {
        {341, full, most, "341 0 "}, // only the count of processes still fits
        {342, full, 1, "341 0 "},
        {most, full, 1, "341 0 "},
        {-1, "", most, "0 510 "},               // 511 processes and 8 bytes of another
        {1, full.substr(0, 24), 512, "1 509 "}, // 510 processes end with the payload
        {0, "", -most - 1, "0 0 "}};
    for (const auto& [devices, records, count, taken] : cases) {
        net_stat_parse parser;
        parser.pid_result = {{1, {}}, {2, {}}};
        parser.parse_net_stat(payload_area(bandwidth(devices, records, count, processes)), 0);
        const auto total = std::max(parser.pid_result[1].total, parser.pid_result[2].total);
        EXPECT_EQ(line_of(parser.dev_result.size(), total), taken);
    }
}

TEST(net_stat, takes_its_own_lock_for_all_but_start_and_leaves_the_figures_to_a_running_cycle) {
    served<net_stat_manager> with;
    net_stat_manager& m = with.m;
    const std::function<int()> locked[] = {
        [&] { return m.add_net_monitor_process(1); }, [&] { return m.get_bandwidth_stat(nullptr); },
        [&] { return m.remove_net_monitor_process(2); }, [&] { return m.exit_net_monitor(); }};
    for (const auto& operation : locked)
        for (std::mutex* lock : {&m.net_lock, &m.req_lock}) {
            m.parser->pid_result = {{2, {}}};
            std::unique_lock<std::mutex> held(*lock);
            auto done = std::async(std::launch::async, operation);
            EXPECT_EQ(lock == &m.net_lock ? m.start_net_monitor() : 0, 0);
            EXPECT_EQ(done.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
            EXPECT_TRUE(m.parser->pid_result.size() == 1 && m.parser->pid_result.count(2) == 1);
            held.unlock();
            EXPECT_EQ(done.get(), 0);
        }
}
