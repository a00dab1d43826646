// Bytes of network devices and of registered processes.
#include "child_process.h"
#include "loopback_pair.h"
#include "running_server.h"
#include "sampler_asker.h"

#include "net_stat_manager.h"

#include <fstream>
#include <gtest/gtest.h>

namespace {
constexpr int net = 0xAE09;
enum { add = 1, remove_process, start, bandwidth, leave };

std::string pid_payload(int pid) {
    unsigned char bytes[4];
    u32_to_u8(static_cast<unsigned>(pid), bytes);
    return std::string(reinterpret_cast<const char*>(bytes), sizeof bytes);
}

std::string device_lines(int count) {
    std::string text = "Inter-|   Receive\n face |bytes\n";
    for (int i = 0; i < count; ++i)
        text += " dev" + std::to_string(i) + ":256 1 0 0 0 0 0 0 " + std::to_string(i) +
                " 1 0 0 0 0 0 0\n";
    return text + "torn: 1 2\n";
}

// Process ids of the answer, in its order.
std::vector<int> processes_in(const sampler_asker& asker) {
    const std::size_t start_at = 4 + 24 * asker.record<std::uint32_t>(0);
    std::vector<int> pids;
    for (std::uint32_t i = 0; i < asker.record<std::uint32_t>(start_at); ++i)
        pids.push_back(asker.record<process_net_s>(start_at + 4 + i * sizeof(process_net_s)).pid);
    return pids;
}

TEST(network_sampler, each_client_has_a_set_of_its_own) {
    const file_tree tree;
    tree.write("/proc/net/dev", device_lines(1));
    sampler_asker asker(tree.root());
    using pids = std::vector<int>;
    const auto listed = [&asker](std::uint8_t client) {
        EXPECT_EQ(asker.ask(net, bandwidth, "", client), 0);
        return processes_in(asker);
    };
    for (int pid : {30, 10, 10})
        EXPECT_EQ(asker.ask(net, add, pid_payload(pid), 1), 0);
    EXPECT_EQ(listed(1), pids{}) << "not started";
    for (const std::uint8_t client : {std::uint8_t{1}, std::uint8_t{2}})
        EXPECT_EQ(asker.ask(net, start, "", client), 0);
    EXPECT_EQ(asker.ask(net, add, pid_payload(20), 2), 0);
    EXPECT_EQ(listed(1), (pids{10, 30}));
    EXPECT_EQ(listed(2), pids{20});
    EXPECT_EQ(asker.ask(net, remove_process, pid_payload(20), 1), 0);
    EXPECT_EQ(asker.ask(net, remove_process, pid_payload(30), 1), 0);
    EXPECT_EQ(listed(1), pids{10});
    asker.client_gone(1);
    EXPECT_EQ(listed(1), pids{});
    EXPECT_EQ(listed(2), pids{20});
    EXPECT_EQ(asker.ask(net, leave, "", 2), 0);
    EXPECT_EQ(asker.ask(net, start, "", 2), 0);
    EXPECT_EQ(listed(2), pids{});
    for (const std::string& bad : {pid_payload(0), pid_payload(-1), std::string("\1\1", 2)})
        EXPECT_EQ(asker.ask(net, add, bad, 1), -EINVAL);
}

TEST(network_sampler, processes_and_devices_share_one_packet) {
    const file_tree tree;
    tree.write("/proc/net/dev", device_lines(900));
    sampler_asker asker(tree.root());
    ASSERT_EQ(asker.ask(net, bandwidth), 0);
    EXPECT_EQ(asker.record<std::uint32_t>(0), 341U);
    ASSERT_EQ(asker.ask(net, start), 0);
    for (int pid = 1; pid <= 256; ++pid)
        ASSERT_EQ(asker.ask(net, add, pid_payload(pid)), 0);
    EXPECT_EQ(asker.ask(net, add, pid_payload(257)), -ENOSPC);
    EXPECT_EQ(asker.ask(net, add, pid_payload(256)), 0);
    ASSERT_EQ(asker.ask(net, bandwidth), 0);
    EXPECT_EQ(asker.record<std::uint32_t>(0), 170U);
    EXPECT_EQ(processes_in(asker).size(), 256U);
    EXPECT_LE(asker.bytes.size(), static_cast<std::size_t>(answer_payload_max));
}

std::uint64_t kernel_total(const std::string& device) {
    std::uint64_t total = 0;
    for (const char* direction : {"rx_bytes", "tx_bytes"}) {
        std::uint64_t bytes = 0;
        std::ifstream("/sys/class/net/" + device + "/statistics/" + direction) >> bytes;
        total += bytes;
    }
    return total;
}

TEST(this_machine, device_totals_agree_with_the_kernel) {
    const running_server server;
    net_stat_manager manager("127.0.0.1", server.port());
    ASSERT_EQ(manager.get_bandwidth_stat(nullptr), 0);
    auto before = manager.parser->dev_result;
    std::map<std::string, std::uint64_t> kernel;
    for (const auto& each : before)
        kernel[each.second.dev_name] = kernel_total(each.second.dev_name);
    ASSERT_EQ(kernel.count("lo"), 1U);
    ASSERT_EQ(manager.get_bandwidth_stat(nullptr), 0);
    for (const auto& [position, device] : manager.parser->dev_result) {
        EXPECT_LE(before[position].total, kernel[device.dev_name]);
        EXPECT_LE(kernel[device.dev_name], device.total);
    }
}

TEST(this_machine, known_bytes_show_in_the_rates_of_process_and_device) {
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
        for (const auto& each : manager.parser->dev_result)
            by_device += each.second.rate * seconds;
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
