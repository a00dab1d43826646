// Bytes of network devices and of registered processes.
#include "child_process.h"
#include "running_server.h"
#include "sampler_asker.h"

#include "net_stat_manager.h"

#include <arpa/inet.h>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

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

TEST(network_sampler, device_totals_are_big_endian) {
    const file_tree tree;
    tree.write("/proc/net/dev", device_lines(3));
    sampler_asker asker(tree.root());
    ASSERT_EQ(asker.ask(net, bandwidth), 0);
    ASSERT_EQ(asker.bytes.size(), 4U + 3 * 24 + 4);
    EXPECT_EQ(asker.bytes.substr(0, 4), std::string("\3\0\0\0", 4));
    EXPECT_EQ(asker.bytes.substr(28, 24),
              std::string("dev1", 4) + std::string(12 + 6, '\0') + std::string("\1\1", 2));
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

/// A loopback connection to a process that takes whatever comes.
class drain {
public:
    drain() {
        const int listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* where = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(listener, where, size) | listen(listener, 1), 0);
        getsockname(listener, where, &size);
        pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int connection = accept(listener, nullptr, nullptr);
            char bytes[65536];
            while (read(connection, bytes, sizeof bytes) > 0) {
            }
            pause();
        }
        fd = socket(AF_INET, SOCK_STREAM, 0);
        EXPECT_EQ(connect(fd, where, size), 0);
        close(listener);
    }
    ~drain() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    drain(const drain&) = delete;
    drain& operator=(const drain&) = delete;

    void send(std::size_t count) const {
        const std::string bytes(count, 'x');
        for (std::size_t sent = 0; sent < count;) {
            const ssize_t n = write(fd, bytes.data() + sent, count - sent);
            ASSERT_GT(n, 0);
            sent += static_cast<std::size_t>(n);
        }
    }

    int fd;
    pid_t pid;
};

std::map<std::string, std::uint64_t> kernel_totals() {
    std::map<std::string, std::uint64_t> totals;
    std::ifstream lines("/proc/net/dev");
    for (std::string line; std::getline(lines, line);) {
        std::replace(line.begin(), line.end(), ':', ' ');
        std::istringstream fields(line);
        std::string name;
        std::uint64_t received = 0;
        std::uint64_t sent = 0;
        fields >> name >> received;
        for (int i = 0; i < 8; ++i)
            fields >> sent;
        if (fields)
            totals[name] = received + sent;
    }
    return totals;
}

TEST(this_machine, device_totals_agree_with_the_kernel) {
    const running_server server;
    net_stat_manager manager("127.0.0.1", server.port());
    const auto before = kernel_totals();
    ASSERT_EQ(manager.get_bandwidth_stat(nullptr), 0);
    const auto after = kernel_totals();
    ASSERT_EQ(manager.parser->dev_result.size(), before.size());
    for (const auto& each : manager.parser->dev_result) {
        EXPECT_GE(each.second.total, before.at(each.second.dev_name));
        EXPECT_LE(each.second.total, after.at(each.second.dev_name));
    }
}

TEST(this_machine, bytes_sent_over_loopback_are_seen_at_both_ends) {
    constexpr std::size_t count = 3000000;
    const drain far_end; // forks, so before any thread
    const running_server server;
    net_stat_manager manager("127.0.0.1", server.port());
    ASSERT_EQ(manager.start_net_monitor(), 0);
    for (int pid : {getpid(), far_end.pid})
        ASSERT_EQ(manager.add_net_monitor_process(pid), 0);
    ASSERT_EQ(manager.get_bandwidth_stat(nullptr), 0);
    const net_stat& sender = manager.parser->pid_result.at(getpid());
    const net_stat& taker = manager.parser->pid_result.at(far_end.pid);
    const std::uint64_t taken_before = taker.total;
    std::uint64_t device_before = 0;
    for (const auto& each : manager.parser->dev_result)
        device_before += each.second.total;

    far_end.send(count);
    double by_rate = 0;
    for (int i = 0; i < 200 && taker.total - taken_before < count; ++i) {
        usleep(20000);
        timeval last = manager.last_time;
        ASSERT_EQ(manager.get_bandwidth_stat(nullptr), 0);
        by_rate += taker.rate * static_cast<double>(time_diff(last, manager.last_time)) / 1000;
    }
    EXPECT_NEAR(static_cast<double>(taker.total - taken_before), count, 100);
    EXPECT_NEAR(by_rate, count, count / 100.0);
    EXPECT_GE(sender.total, count); // this process also talks to its server
    std::uint64_t device_after = 0;
    for (const auto& each : manager.parser->dev_result)
        device_after += each.second.total;
    EXPECT_GE(device_after - device_before, 2 * count) << "received and sent";

    const std::uint64_t sent = sender.total;
    close(far_end.fd);
    ASSERT_EQ(manager.get_bandwidth_stat(nullptr), 0);
    EXPECT_GE(sender.total, sent);
    EXPECT_EQ(manager.exit_net_monitor(), 0);
}
} // namespace
