// Bytes of network devices and of registered processes.
#include "child_process.h"
#include "loopback_pair.h"
#include "manager_support.h"
#include "running_server.h"
#include "sampler_asker.h"

#include "net_stat_manager.h"

namespace {
enum { add = 1, remove_process, start, bandwidth, leave };

std::string device_lines(int count) {
    return "Inter-|   Receive\n face |bytes\n" +
           repeated(" dev:256 1 0 0 0 0 0 0 5 1 0 0 0 0 0 0\n", count) + "torn: 1 2\n";
}

struct net_asker : sampler_asker {
    using sampler_asker::sampler_asker;
    int net(int sub, int client, int pid = 0) {
        return ask(0xAE09, sub, native(pid), static_cast<std::uint8_t>(client));
    }
    // "DEVICES: PROCESS PROCESS ": the count of devices and the process ids of the answer.
    std::string listed(int client) {
        EXPECT_EQ(net(bandwidth, client), 0);
        const auto devices = record<std::uint32_t>(0);
        std::string text = std::to_string(devices) + ": ";
        for (std::size_t i = 0, at = 4 + 24 * devices; i < record<std::uint32_t>(at); ++i)
            text += line_of(record<process_net_s>(at + 4 + i * 16).pid);
        return text;
    }
};

TEST(network_sampler, each_client_has_a_set_of_its_own) {
    const file_tree tree;
    tree.write("/proc/net/dev", device_lines(1));
    net_asker asker(tree.root());
    for (int pid : {30, 10, 10})
        EXPECT_EQ(asker.net(add, 1, pid), 0);
    EXPECT_EQ(asker.listed(1), "1: ") << "not started";
    for (int client : {1, 2})
        EXPECT_EQ(asker.net(start, client), 0);
    EXPECT_EQ(asker.net(add, 2, 20), 0);
    EXPECT_EQ(asker.listed(1) + asker.listed(2), "1: 10 30 1: 20 ");
    for (int pid : {20, 30})
        EXPECT_EQ(asker.net(remove_process, 1, pid), 0);
    EXPECT_EQ(asker.listed(1) + asker.listed(2), "1: 10 1: 20 ");
    asker.client_gone(1);
    EXPECT_EQ(asker.listed(1) + asker.listed(2), "1: 1: 20 ");
    for (int sub : {leave, start})
        EXPECT_EQ(asker.net(sub, 2), 0);
    EXPECT_EQ(asker.listed(2), "1: ");
    for (int pid : {0, -1})
        EXPECT_EQ(asker.net(add, 1, pid), -EINVAL);
    EXPECT_EQ(asker.ask(0xAE09, add, "\1\1"), -EINVAL);
    // Processes and devices share one packet.
    tree.write("/proc/net/dev", device_lines(900));
    EXPECT_EQ(asker.listed(1), "341: ");
    asker.net(start, 1);
    for (int pid = 1; pid <= 257; ++pid)
        EXPECT_EQ(asker.net(add, 1, pid), pid <= 256 ? 0 : -ENOSPC);
    EXPECT_EQ(asker.listed(1).substr(0, 9), "170: 1 2 ");
    EXPECT_EQ(asker.bytes.size(), 8U + 170 * 24 + 256 * 16);
}

std::uint64_t kernel_total(const std::string& device) {
    std::uint64_t sum = 0, bytes = 0;
    for (const char* direction : {"rx_bytes", "tx_bytes"}) {
        std::ifstream("/sys/class/net/" + device + "/statistics/" + direction) >> bytes;
        sum += bytes;
    }
    return sum;
}

TEST(this_machine, known_bytes_show_in_totals_and_rates_of_process_and_device) {
    constexpr std::size_t count = 3000000;
    // What this process and its server say to each other meanwhile.
    constexpr std::size_t talk = 1000000;
    const child_process idle({"sleep", "60"}); // first, or it has the pair's ends until it executes
    auto pair = std::make_unique<loopback_pair>();
    const running_server server;
    net_stat_manager manager("127.0.0.1", server.port());
    ASSERT_EQ(manager.start_net_monitor(), 0);
    for (int pid : {getpid(), idle.pid()})
        ASSERT_EQ(manager.add_net_monitor_process(pid), 0);
    ASSERT_EQ(manager.get_bandwidth_stat(nullptr), 0);
    const net_stat& process = manager.parser->pid_result.at(getpid());
    const std::uint64_t before = process.total;
    ASSERT_TRUE(pair->carry(count));
    double by_process = 0; // bytes by the rates
    double by_device = 0;
    for (int i = 0; i < 100 && process.total - before < 2 * count; ++i) {
        usleep(20000);
        timeval last = manager.last_time;
        ASSERT_EQ(manager.get_bandwidth_stat(nullptr), 0);
        const double seconds = static_cast<double>(time_diff(last, manager.last_time)) / 1000;
        by_process += process.rate * seconds;
        for (const auto& [position, device] : manager.parser->dev_result) {
            by_device += device.rate * seconds;
            EXPECT_LE(device.total, kernel_total(device.dev_name));
        }
    }
    EXPECT_GE(process.total - before, 2 * count) << "sent and received";
    EXPECT_LE(process.total - before, 2 * count + talk);
    EXPECT_NEAR(by_process, static_cast<double>(process.total - before), 1);
    EXPECT_GE(by_device, 2.0 * count);
    EXPECT_EQ(manager.parser->pid_result.at(idle.pid()).total, 0U);
    const std::uint64_t carried = process.total;
    pair.reset();
    ASSERT_EQ(manager.get_bandwidth_stat(nullptr), 0);
    EXPECT_GE(process.total, carried) << "closed sockets still count";
    EXPECT_EQ(manager.exit_net_monitor(), 0);
}
} // namespace
