// Bytes of network devices and of registered processes.
#include "child_process.h"
#include "loopback_pair.h"
#include "manager_support.h"
#include "process_network.h"
#include "sampler_asker.h"

#include <cmath>
#include <sys/resource.h>

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
        return text.substr(text.find(' ') + 1);
    }
    // The bytes of the last process of the answer, which has @p client's only one.
    std::uint64_t total(int client) {
        EXPECT_EQ(net(bandwidth, client), 0);
        return record<process_net_s>(bytes.size() - 16).total;
    }
};

// The emulator of another architecture has no socket diagnostics.
struct network_sampler : testing::Test {
    void SetUp() override {
        if (*TEST_EMULATOR != '\0')
            GTEST_SKIP();
    }
    net_asker asker{"/"};
};

TEST_F(network_sampler, each_client_has_a_set_of_its_own) {
    child_process shell(
        {"sh", "-c", "for i in $(seq 257); do sleep 60 & echo $!; done; echo .; wait"});
    shell.read_until(".");
    std::istringstream started(shell.out);
    std::vector<pid_t> id{std::istream_iterator<pid_t>(started), {}};
    std::sort(id.begin(), id.end());
    for (int pid : {id[2], id[0], id[0]})
        EXPECT_EQ(asker.net(add, 1, pid), 0);
    EXPECT_EQ(asker.listed(1), "") << "not started";
    for (int client : {1, 2})
        EXPECT_EQ(asker.net(start, client), 0);
    EXPECT_EQ(asker.net(add, 2, id[1]), 0);
    EXPECT_EQ(asker.listed(1), line_of(id[0]) + line_of(id[2]));
    EXPECT_EQ(asker.listed(2), line_of(id[1]));
    for (int pid : {id[1], id[2]})
        EXPECT_EQ(asker.net(remove_process, 1, pid), 0);
    EXPECT_EQ(asker.listed(1) + asker.listed(2), line_of(id[0]) + line_of(id[1]));
    asker.client_gone(1);
    EXPECT_EQ(asker.listed(1) + asker.listed(2), line_of(id[1]));
    for (int sub : {leave, start})
        EXPECT_EQ(asker.net(sub, 2), 0);
    EXPECT_EQ(asker.listed(2), "");
    asker.net(start, 1);
    for (int i = 0; i <= 256; ++i)
        EXPECT_EQ(asker.net(add, 1, id[static_cast<std::size_t>(i)]), i < 256 ? 0 : -ENOSPC);
    EXPECT_EQ(asker.listed(1).find(line_of(id[0]) + line_of(id[1])), 0U);
    for (const pid_t each : id)
        kill(each, SIGKILL);
    EXPECT_EQ(shell.wait(), 0);
}

TEST(network_devices, fill_one_packet_at_most) {
    const file_tree tree;
    net_asker asker(tree.root());
    for (const auto& [there, shown] : {std::pair(1, 1U), {900, 341U}}) {
        tree.write("/proc/net/dev", device_lines(there));
        EXPECT_EQ(asker.net(bandwidth, 1), 0);
        EXPECT_EQ(asker.record<std::uint32_t>(0), shown);
        EXPECT_EQ(asker.bytes.substr(4, 24), field("dev", 16) + native(__builtin_bswap64(256 + 5)));
    }
}

TEST_F(network_sampler, refuses_processes_that_it_cannot_count) {
    const file_tree tree;
    tree.write("/proc/7/stat", "");
    net_asker captured(tree.root());
    EXPECT_EQ(captured.net(add, 1, 7), -ENOTSUP) << "no sockets in a tree of files";
    EXPECT_EQ(captured.net(add, 1, 8), -ESRCH);
    for (const auto& [pid, result] :
         {std::pair(0, -EINVAL), {-1, -EINVAL}, {0x101, -EINVAL}, {999999999, -ESRCH}})
        EXPECT_EQ(pid == 0x101 ? asker.ask(0xAE09, add, "\1\1") : asker.net(add, 1, pid), result);
    auto ending = std::make_unique<child_process>(std::vector<std::string>{"sleep", "60"});
    const pid_t pid = ending->pid();
    EXPECT_EQ(asker.net(add, 1, pid), 0);
    EXPECT_EQ(asker.net(start, 1), 0);
    ending.reset();
    EXPECT_EQ(asker.net(add, 1, pid), -ESRCH) << "known, but it has ended";
    EXPECT_EQ(asker.listed(1), line_of(pid)) << "its total stays";
    EXPECT_EQ(asker.net(remove_process, 1, pid), 0);
    EXPECT_EQ(asker.net(add, 1, pid), -ESRCH);
    // A process of root's, asked for by somebody else.
    const pid_t of_root = getuid() == 0 ? getpid() : 1;
    const pid_t other = fork();
    if (other == 0) {
        if (getuid() == 0 && setuid(65534) != 0)
            _exit(1);
        _exit(-asker.net(add, 1, of_root));
    }
    int status = 0;
    waitpid(other, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), EACCES);
}

TEST_F(network_sampler, counts_each_byte_of_data_once) {
    const loopback_pair pair;
    EXPECT_EQ(asker.net(add, 1, getpid()), 0);
    EXPECT_EQ(asker.net(start, 1), 0);
    const std::uint64_t before = asker.total(1);
    ASSERT_TRUE(pair.carry_50000());
    EXPECT_EQ(asker.total(1), before + 100000);
    // One descriptor is left: enough for the table of devices, but not for the process's sockets.
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int lowest = dup(STDIN_FILENO);
    close(lowest);
    const rlimit low{static_cast<rlim_t>(lowest) + 1, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &low);
    const std::uint64_t meanwhile = asker.total(1);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(meanwhile, before + 100000);
    EXPECT_EQ(asker.total(1), before + 100000);
    // What the kernel counts for starting and ending a connection is no data.
    for (const bool ended : {false, true}) {
        if (ended)
            pair.end_sending();
        std::vector<monsrv::tcp_socket> sockets;
        monsrv::list_tcp_sockets(std::chrono::steady_clock::now() + std::chrono::seconds(5),
                                 sockets);
        EXPECT_EQ(std::count_if(sockets.begin(), sockets.end(),
                                [](const auto& socket) { return socket.bytes == 50000; }),
                  2)
            << ended;
    }
}

TEST(process_traffic, keeps_the_bytes_of_sockets_that_come_and_go) {
    const struct {
        const char* name;
        std::vector<std::uint32_t> held;
        bool all;
        std::vector<monsrv::tcp_socket> sockets; // cookie, inode, bytes
        std::uint64_t total;
    } looks[] = {{"two open", {1, 2}, true, {{91, 1, 100}, {92, 2, 10}}, 110},
                 {"descriptors unreadable", {}, false, {{91, 1, 150}, {92, 2, 10}}, 110},
                 {"readable again", {1, 2}, true, {{91, 1, 150}, {92, 2, 10}}, 160},
                 {"one missed by the kernel", {1, 2}, true, {{92, 2, 20}}, 170},
                 {"and listed again", {1, 2}, true, {{91, 1, 200}, {92, 2, 20}}, 220},
                 {"unreadable, and one missed", {}, false, {{92, 2, 20}}, 220},
                 {"both back", {1, 2}, true, {{91, 1, 200}, {92, 2, 20}}, 220},
                 {"one handed to another", {2}, true, {{91, 1, 300}, {92, 2, 20}}, 220},
                 {"and handed back", {1, 2}, true, {{91, 1, 400}, {92, 2, 20}}, 420},
                 {"one closed", {2}, true, {{92, 2, 20}}, 420},
                 {"its inode used again", {1, 2}, true, {{93, 1, 5}, {92, 2, 20}}, 425},
                 {"another's inode, too", {1, 2}, true, {{93, 1, 5}, {94, 2, 1}}, 426},
                 {"all closed", {}, true, {}, 426}};
    monsrv::process_traffic traffic;
    for (auto look : looks) {
        std::sort(look.sockets.begin(), look.sockets.end(),
                  [](const auto& a, const auto& b) { return a.inode < b.inode; });
        traffic.update(look.held, look.all, look.sockets);
        EXPECT_EQ(traffic.total(), look.total) << look.name;
    }
}

TEST(socket_rates, count_from_the_list_before) {
    const struct {
        const char* name;
        std::vector<monsrv::tcp_socket> sockets; // cookie, inode, bytes
        double rate;
    } looks[] = {{"nothing to compare with", {{91, 1, 500}}, NAN},
                 {"an old and a new one", {{91, 1, 600}, {92, 2, 60}}, 80},
                 {"missed by the kernel", {{92, 2, 60}}, 0},
                 {"and listed again", {{91, 1, 610}, {92, 2, 60}}, 5},
                 {"closed", {{92, 2, 80}}, 10}};
    monsrv::socket_rates rates;
    auto time = monsrv::socket_rates::clock::now();
    for (const auto& look : looks) {
        rates.update(look.sockets, time += std::chrono::seconds(2));
        EXPECT_EQ(line_of(rates.rate({1, 2})), line_of(look.rate)) << look.name;
    }
}

} // namespace
