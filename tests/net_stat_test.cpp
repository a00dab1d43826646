// Network bandwidth: requests, rates, mixed byte order, counts that the payload cannot hold, locks.
#include "log_capture.h"
#include "manager_support.h"
#include "net_stat_manager.h"

#include <future>
#include <set>

namespace {
constexpr int command = 0xAE09;

std::string big_endian(std::uint64_t value) {
    std::string bytes(8, '\0');
    for (std::size_t i = 0; i < 8; ++i)
        bytes[i] = static_cast<char>(value >> (56 - 8 * i));
    return bytes;
}

std::string device(const std::string& name, std::uint64_t total) {
    return field(name, 16) + big_endian(total);
}

std::string process(int pid, std::uint64_t total) {
    return native<std::int32_t>(pid) + "pad!" + native(total);
}

std::string bandwidth(int devices, const std::string& records, int processes,
                      const std::string& process_records) {
    return native<std::int32_t>(devices) + records + native<std::int32_t>(processes) +
           process_records;
}

std::string pid_payload(int pid) {
    return native<std::int32_t>(pid);
}
} // namespace

TEST(net_stat, sends_the_request_of_each_operation_and_exits_in_ascending_order) {
    scripted_server server;
    auto connection = server.connect();
    net_stat_manager m(connection);
    auto& registered = m.parser->pid_result;
    expect_requests(server, command,
                    {{[&] { return m.start_net_monitor(); }, {3}},
                     {[&] { return m.add_net_monitor_process(0x01020304); }, {1}, "\4\3\2\1"},
                     {[&] { return m.add_net_monitor_process(-2); }, {1}, "\xfe\xff\xff\xff"},
                     {[&] { return m.get_bandwidth_stat(nullptr); }, {4}},
                     {[&] { return m.remove_net_monitor_process(77); }, {2}, pid_payload(77)},
                     {[&] { return m.remove_net_monitor_process(-2); }, {2}, pid_payload(-2)}});
    ASSERT_EQ(registered.size(), 1U);
    // One that is registered keeps its figures, and one that the server refuses is registered.
    registered[0x01020304].total = 5;
    EXPECT_EQ(m.add_net_monitor_process(0x01020304), 0);
    EXPECT_EQ(registered[0x01020304].total, 5U);
    for (int pid : {900, 7, 50, -1}) {
        server.next({error_packet(1, -3)});
        EXPECT_EQ(m.add_net_monitor_process(pid), -3);
    }
    m.parser->dev_result[0];
    comparable_requests(server);

    log_capture log;
    server.next({error_packet(2, -3)});
    EXPECT_EQ(m.exit_net_monitor(), 0);
    std::vector<std::string> expected;
    for (int pid : {-1, 7, 50, 900, 0x01020304})
        expected.push_back(request_bytes(command, 2, pid_payload(pid)));
    expected.push_back(request_bytes(command, 5, std::string(4, '\0')));
    EXPECT_EQ(comparable_requests(server), expected);
    EXPECT_TRUE(log.has("6 MONCL_NET: Receive message error with -3"));
    EXPECT_TRUE(registered.empty() && m.parser->dev_result.empty());
    expect_requests(server, command, {{[&] { return m.exit_net_monitor(); }, {5}}});
    server.next({error_packet(5, -6)});
    EXPECT_EQ(m.exit_net_monitor(), -6);
}

TEST(net_stat, reports_rates_between_two_answers) {
    constexpr std::uint64_t spike = 3 * 1024 * 1024;
    const std::string heading = "Net   Rate(KB/s)\n";
    const std::string none = "pid:5, total 0 bytes, rate:0.00 Kbytes/s";
    const std::string one = "pid:30, total 1024 bytes, rate:1.00 Kbytes/s";
    const std::string spiked = "pid:5, total 3145728 bytes, rate:3072.00 Kbytes/s";
    const std::string still = "lo    0.00\nwlan0-outdoors-1.00\n";
    const struct {
        int sub_command;
        long s, us; // time of receipt
        std::string payload;
        std::string expected;
    } answers[] = {
        {4, 10, 1, bandwidth(0, "", 0, ""),
         heading + "pid:5, total 0 bytes, rate:0.000 Kbytes/s"
                   "pid:30, total 0 bytes, rate:0.000 Kbytes/s"},
        {4, 11, 1, bandwidth(2, device("lo", 1000000) + device("eth0", 0), 0, ""),
         heading + "lo    976.56\neth0  0.00\n"
                   "pid:5, total 0 bytes, rate:0.00 Kbytes/s"
                   "pid:30, total 0 bytes, rate:0.00 Kbytes/s"},
        // The first total of a process counts from 0, one that is not registered is left out.
        {4, 12, 0,
         bandwidth(2, device("lo", 1512000) + device("wlan0-outdoors-2", 1024), 3,
                   process(30, 1024) + process(6, 1) + process(5, spike)),
         heading + "lo    500.00\nwlan0-outdoors-1.00\n" + spiked + one},
        // The time stamp before has no microseconds and so counts as none; it does not the next
        // time. A device that is gone keeps its figures.
        {4, 14, 500, bandwidth(1, device("lo", 9999999), -1, "\1\1\1\1"),
         heading + still + spiked + one},
        // No time has passed, in whole milliseconds; no device, and a process behind that.
        {4, 14, 1499, bandwidth(-1, "", 1, process(5, 0)), heading + still + none + one},
        // Answers to anything else carry no figures and no time.
        {3, 15, 1, bandwidth(1, device("no", 1), 1, process(5, 1)), heading + still + none + one},
        // Counters that run backwards wrap.
        {4, 24, 1499, bandwidth(1, device("lo", 9999998), 1, process(30, 0)),
         heading + "lo    1801439850948198.50\nwlan0-outdoors-1.00\n"
                   "pid:5, total 0 bytes, rate:0.00 Kbytes/s"
                   "pid:30, total 0 bytes, rate:1801439850948198.50 Kbytes/s"},
    };
    offline<net_stat_manager> manager;
    log_capture log;
    manager.parser->pid_result = {{30, {}}, {5, {}}};
    for (const auto& answer : answers)
        EXPECT_EQ(report(manager, manager.parser, answer.sub_command, answer.payload,
                         {answer.s, answer.us}),
                  answer.expected);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"6 -: recive pid 6 not in pid map"});
    EXPECT_EQ(manager.last_time.tv_sec, 24);
}

TEST(net_stat, takes_only_the_records_the_payload_holds) {
    constexpr int most = std::numeric_limits<std::int32_t>::max();
    std::string full;
    for (int i = 0; i < 341; ++i)
        full += device("dev" + std::to_string(i), static_cast<std::uint64_t>(i));
    std::string processes;
    for (int i = 0; i < 512; ++i)
        processes += process(1 + i % 2, static_cast<std::uint64_t>(i));
    const struct {
        int devices;
        std::string records;
        int processes;
        std::size_t devices_taken;
        std::uint64_t total;
    } cases[] = {
        {341, full, most, 341, 0}, // room for the count of processes, none for a process
        {342, full, 1, 341, 0},
        {most, full, 1, 341, 0},
        {-1, "", most, 0, 510}, // 511 processes and 8 bytes of another
        {0, "", 511, 0, 510},
        {1, full.substr(0, 24), 512, 1, 509}, // 510 processes end with the payload
        {0, "", -most - 1, 0, 0},
    };
    for (const auto& c : cases) {
        net_stat_parse parser;
        parser.pid_result = {{1, {}}, {2, {}}};
        payload_area payload(bandwidth(c.devices, c.records, c.processes, processes));
        EXPECT_EQ(parser.parse_net_stat(payload.data(), 0), 1);
        EXPECT_EQ(parser.dev_result.size(), c.devices_taken);
        EXPECT_EQ(std::max(parser.pid_result[1].total, parser.pid_result[2].total), c.total);
    }

    std::mt19937 random(6);
    payload_area payload;
    for (int i = 0; i < 500; ++i) {
        net_stat_parse parser;
        payload.randomize(random);
        u32_to_u8(static_cast<unsigned>(random() % 400), payload.data());
        log_capture log;
        parser.parse_net_stat(payload.data(), random() % 3);
        ASSERT_EQ(parser.dev_result.size(), std::min(u8_to_u32(payload.data()), 341U));
    }
}

TEST(net_stat, takes_its_own_lock_for_all_but_start_and_leaves_the_figures_to_a_running_cycle) {
    constexpr auto moment = std::chrono::milliseconds(30);
    scripted_server server;
    auto connection = server.connect();
    net_stat_manager m(connection);
    const std::vector<std::function<int()>> locked = {
        [&] { return m.add_net_monitor_process(1); }, [&] { return m.get_bandwidth_stat(nullptr); },
        [&] { return m.remove_net_monitor_process(2); }, [&] { return m.exit_net_monitor(); }};
    for (const auto& operation : locked) {
        std::unique_lock<std::mutex> held(m.net_lock);
        auto done = std::async(std::launch::async, operation);
        EXPECT_EQ(m.start_net_monitor(), 0);
        EXPECT_EQ(done.wait_for(moment), std::future_status::timeout);
        held.unlock();
        EXPECT_EQ(done.get(), 0);

        m.parser->pid_result = {{2, {}}};
        std::unique_lock<std::mutex> cycle(m.req_lock);
        done = std::async(std::launch::async, operation);
        EXPECT_EQ(done.wait_for(moment), std::future_status::timeout);
        EXPECT_TRUE(m.parser->pid_result.size() == 1 && m.parser->pid_result.count(2) == 1);
        cycle.unlock();
        EXPECT_EQ(done.get(), 0);
        m.parser->pid_result = {{1, {}}};
    }
}

// The server answers every request with figures, as if it were a poll.
TEST(net_stat, keeps_the_registered_set_and_the_servers_alike_under_concurrent_use) {
    scripted_server server;
    std::set<int> at_server;
    server.answer([&](int, int sub_command, const std::string& request) -> answer_packets {
        const int pid = static_cast<int>(
            u8_to_u32(reinterpret_cast<const unsigned char*>(request.data()) + frame_header_size));
        if (sub_command == 1)
            at_server.insert(pid);
        else if (sub_command == 2)
            at_server.erase(pid);
        return {packet(4, bandwidth(1, device("lo", 5), 2, process(1, 1) + process(2, 2)))};
    });
    auto connection = server.connect();
    net_stat_manager m(connection);
    log_capture log;
    std::vector<std::future<int>> users;
    for (int user = 0; user < 4; ++user)
        users.push_back(std::async(std::launch::async, [&m, user] {
            std::mt19937 random(static_cast<unsigned>(user));
            std::ostringstream out;
            int failures = 0;
            for (int i = 0; i < 100; ++i) {
                const int pid = static_cast<int>(random() % 4);
                const std::function<int()> operations[] = {
                    [&] { return m.exit_net_monitor(); }, [&] { return m.start_net_monitor(); },
                    [&] { return m.get_bandwidth_stat(&out); },
                    [&] { return m.remove_net_monitor_process(pid); },
                    [&] { return m.add_net_monitor_process(pid); }};
                failures += operations[random() % 5]();
            }
            return failures;
        }));
    for (auto& user : users)
        EXPECT_EQ(user.get(), 0);
    EXPECT_GE(server.take_requests().size(), 400U);
    std::set<int> here;
    for (const auto& [pid, figures] : m.parser->pid_result)
        here.insert(pid);
    EXPECT_EQ(here, at_server);
}
